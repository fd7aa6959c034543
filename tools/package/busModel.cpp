#include "busModel.h"

#include "files.h"
#include "lib/hexfile/hexRecords.h"
#include "system/actions/imageCheck.h"

namespace package {

namespace {

BusCost costOfRecords(const std::filesystem::path& path) {
    hexrecords image(path.string());
    if (!image.getFileOK() || imageCheck::hasError(imageCheck::ofRecords(path.string())))
        throw Failure(path.filename().string() + ": refused by the panel");
    return BusCost::ofRecords(image);
}

} // namespace

BusCost costOfImage(const std::filesystem::path& path, const Processor& processor, bool serial) {
    if (processor.records)
        return costOfRecords(path);
    const flashLayouts::LAYOUT layout = processor.layout(serial);
    hexpage image;
    if (!acceptedByPanel(path, layout, image))
        throw Failure(path.filename().string() + ": refused by the panel");
    return BusCost::ofImage(layout, image, processor.identifies);
}

} // namespace package
