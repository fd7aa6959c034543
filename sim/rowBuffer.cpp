#include "rowBuffer.h"

namespace sim {

void RowBuffer::open() {
    clear();
    open_ = true;
}

std::uint16_t RowBuffer::nextRow() const {
    return last_ ? static_cast<std::uint16_t>(*last_ + 1) : 0;
}

RowBuffer::Result RowBuffer::take(std::uint16_t row, std::span<const std::uint8_t> data) {
    if (!open_)
        return Result::Missed;
    if (row == last_ && !anyOrder_)
        return Result::Repeated;
    if (row != nextRow() && !anyOrder_)
        return Result::Missed;
    hadShortRow_ = hadShortRow_ || (lastWasShort_ && !anyOrder_);
    lastWasShort_ = data.size() < (row < FIRST_HIGH_ROW ? ROW_DATA : HIGH_ROW_DATA);
    last_ = row;
    rows_[row].assign(data.begin(), data.end());
    return Result::Accepted;
}

Bytes RowBuffer::bytes() const {
    Bytes all;
    for (const auto& [row, data] : rows_)
        all.insert(all.end(), data.begin(), data.end());
    return all;
}

} // namespace sim
