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

// Settings words lie apart; what runs on behind the flash is a program that is too large for it.
void requireWhole(const Image& inside, const std::vector<Span>& dropped, const Processor& processor) {
    for (const Span& span : dropped) {
        if (span.start != 0 && inside.holds(span.start - 1))
            throw BadFile("cropping would cut it in two: it runs on behind the flash of a " +
                          std::string(processor.name) + ", from " + spansText({span}));
    }
}

} // namespace

std::string spansText(const std::vector<Span>& spans) {
    std::string text;
    for (const Span& span : spans)
        text += format("%s0x%llX to 0x%llX", text.empty() ? "" : ", ",
                       static_cast<unsigned long long>(span.start),
                       static_cast<unsigned long long>(span.end - 1));
    return text;
}

Converted convertImage(const std::filesystem::path& path, const Conversion& conversion) {
    Image image = readImage(path);
    image.toPhysical(); // nothing else has flash at a PIC32's virtual addresses
    Converted converted;
    converted.processor =
        conversion.processor != nullptr ? conversion.processor : &likelyProcessor(path, image);
    requireMachine(path, *converted.processor);
    const flashLayouts::LAYOUT layout =
        converted.processor->layout(conversion.serial || !converted.processor->onCan);
    Image inside = image;
    converted.outside = inside.crop(layout);
    if (inside.empty())
        throw BadFile(std::string("nothing of it lies in the flash of a ") + converted.processor->name);
    if (conversion.crop) {
        requireWhole(inside, converted.outside, *converted.processor);
        image = inside;
    }
    if (conversion.fill && !converted.processor->records)
        converted.filled = image.fill(layout);
    converted.bytes = image.size();
    converted.text = image.hexText();
    return converted;
}

std::string summaryOf(const Converted& converted, const Conversion& conversion) {
    std::string text =
        format("%llu bytes for %s, %llu of them filled in", static_cast<unsigned long long>(converted.bytes),
               converted.processor->name, static_cast<unsigned long long>(converted.filled));
    if (!converted.outside.empty())
        text += conversion.crop
                    ? "; dropped " + spansText(converted.outside)
                    : "; " + spansText(converted.outside) + " lies outside of its flash (--crop drops it)";
    if (conversion.processor == nullptr)
        text += std::string("; ") + converted.processor->name +
                " is the most likely processor (--processor names another)";
    return text;
}

} // namespace package
