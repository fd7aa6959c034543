// The data rows of a page (or record) that is being sent.
#pragma once

#include "protocol.h"

#include <map>
#include <optional>
#include <span>

namespace sim {

class RowBuffer {
public:
    enum class Result {
        Accepted,
        Repeated, // the row accepted last, come again; not stored twice
        Missed,   // not open, or not the row that was to come
    };

    // In any order each row is kept at the place that it names; one that comes again takes the place of
    // itself.
    explicit RowBuffer(bool inAnyOrder) : anyOrder_(inAnyOrder) {}

    void open();
    void clear() { *this = RowBuffer(anyOrder_); }
    void close() { open_ = false; }
    bool isOpen() const { return open_; }

    Result take(std::uint16_t row, std::span<const std::uint8_t> data);

    // The row accepted last, 0 for none.
    std::uint16_t lastRow() const { return last_.value_or(0); }
    // The row that is to come; meaningful while open.
    std::uint16_t nextRow() const;
    // Whether a row that was not full has been followed by another one.
    bool hadShortRow() const { return hadShortRow_; }
    // Of all rows.
    Bytes bytes() const;

private:
    bool anyOrder_;
    bool open_ = false;
    bool hadShortRow_ = false;
    bool lastWasShort_ = false;
    std::optional<std::uint16_t> last_;
    std::map<std::uint16_t, Bytes> rows_;
};

} // namespace sim
