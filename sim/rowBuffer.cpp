#include "rowBuffer.h"

namespace sim {

void RowBuffer::open() {
    *this = RowBuffer();
    open_ = true;
}

std::uint16_t RowBuffer::nextRow() const {
    return last_ ? static_cast<std::uint16_t>(*last_ + 1) : 0;
}

RowBuffer::Result RowBuffer::take(std::uint16_t row, std::span<const std::uint8_t> data) {
    if (!open_)
        return Result::Missed;
    if (row == last_)
        return Result::Repeated;
    if (row != nextRow())
        return Result::Missed;
    hadShortRow_ = hadShortRow_ || lastWasShort_;
    lastWasShort_ = data.size() < (row < firstHighRow ? rowData : highRowData);
    last_ = row;
    bytes_.insert(bytes_.end(), data.begin(), data.end());
    return Result::Accepted;
}

} // namespace sim
