// A bootloader that is programmed page by page.
#include "bootloader.h"

namespace sim {

namespace {

class PagedBootloader : public Bootloader {
public:
    using Bootloader::Bootloader;

    Reply startPage(std::uint32_t address, unsigned size) override;

private:
    Status programRows() override;

    std::uint32_t address_ = 0; // of the open page
    std::size_t size_ = 0;      // bytes announced for it
};

Reply PagedBootloader::startPage(std::uint32_t address, unsigned size) {
    rows_.close();
    if (isIgnored(address))
        return {Status::IgnorePage, 0};
    if (!processor_.isPageStart(address))
        return broken(Status::WriteError,
                      format("start of page at %08X, where no page of the flash starts", address));
    if (size == 0 || size > processor_.pageBytes)
        return broken(Status::WriteError, format("page of %u bytes at %08X", size, address));
    address_ = address;
    size_ = size;
    rows_.open();
    return {};
}

Status PagedBootloader::programRows() {
    const Bytes bytes = rows_.bytes();
    if (bytes.size() != size_) {
        log_.add(format("page %08X announced with %u bytes, but %u came", address_,
                        static_cast<unsigned>(size_), static_cast<unsigned>(bytes.size())));
        return Status::BadChecksum;
    }
    const std::uint32_t cell = processor_.cellOf(address_);
    if (processor_.erasesOnWrite)
        flash_.erase(cell, processor_.pageBytes);
    return program(cell, bytes);
}

} // namespace

std::unique_ptr<Bootloader> makePagedBootloader(const Processor& processor, const Temper& temper,
                                                Flash& flash, ProtocolLog& log) {
    return std::make_unique<PagedBootloader>(processor, temper, flash, log);
}

} // namespace sim
