#include "convert.h"

#include "elfFile.h"
#include "lib/format.h"

namespace package {

namespace {

// By the addresses; an ELF file tells what it was linked for.
const Processor& likelyProcessor(const std::filesystem::path& path, const Image& image) {
    const Processor& guessed = guessProcessor(image.records());
    const auto facts = readElfFacts(path);
    for (const char* name : {"stm32f0", "pic32-pages", "pic24"}) {
        if (facts && facts->machine != guessed.machine && facts->machine == findProcessor(name)->machine)
            return *findProcessor(name);
    }
    return guessed;
}

void requireMachine(const std::filesystem::path& path, const Processor& processor) {
    const auto facts = readElfFacts(path);
    if (facts && (facts->machine != processor.machine || facts->bits != 32 || facts->bigEndian))
        throw BadFile("an ELF file for " + facts->machineName() + ", which no " + processor.name + " is");
}

} // namespace

Converted convertImage(const std::filesystem::path& path, const Conversion& conversion) {
    Image image = readImage(path);
    image.toPhysical(); // nothing else has flash at a PIC32's virtual addresses
    Converted converted;
    converted.processor =
        conversion.processor != nullptr ? conversion.processor : &likelyProcessor(path, image);
    requireMachine(path, *converted.processor);
    const flashLayouts::LAYOUT layout =
        converted.processor->layout(conversion.serial || !converted.processor->onCan);
    if (conversion.crop)
        converted.dropped = image.crop(layout);
    if (image.empty())
        throw BadFile(std::string("nothing of it lies in the flash of a ") + converted.processor->name);
    if (conversion.fill && !converted.processor->records)
        converted.filled = image.fill(layout);
    converted.bytes = image.size();
    converted.text = image.hexText();
    return converted;
}

std::string summaryOf(const Converted& converted) {
    std::string text =
        format("%llu bytes for %s, %llu of them filled in", static_cast<unsigned long long>(converted.bytes),
               converted.processor->name, static_cast<unsigned long long>(converted.filled));
    for (const Span& span : converted.dropped)
        text += format("; dropped 0x%llX to 0x%llX", static_cast<unsigned long long>(span.start),
                       static_cast<unsigned long long>(span.end - 1));
    return text;
}

} // namespace package
