#include "bench.h"

#include "lib/crc16.h"
#include "lib/functs.h"
#include "lib/hexfile/hexPage.h"
#include "system/updateCoreLoader.h"

#include <boost/crc.hpp>
#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr double MEGABYTE = 1e6;
constexpr int CRC_ROUNDS = 200;

void require(bool success, const std::string& what) {
    if (!success) {
        throw std::runtime_error(what);
    }
}

/** The check value as its table defines it, a byte at a time. */
std::uint32_t crcByTable(const std::vector<std::uint8_t>& data) {
    std::uint32_t accum = 0xFFFF;
    for (const std::uint8_t byte : data) {
        accum = crc_table[((accum >> 8) ^ byte) & 0xFF] ^ ((accum & 0xFF) << 8);
    }
    return accum;
}

std::uint32_t crcByBoost(const std::vector<std::uint8_t>& data) {
    boost::crc_optimal<16, 0x1021, 0xFFFF, 0, false, false> crc;
    crc.process_bytes(data.data(), data.size());
    return crc.checksum();
}

std::uint32_t crcByUpdater(const std::vector<std::uint8_t>& data) {
    return crc16().crc16_calculate(data.data(), static_cast<std::uint32_t>(data.size()));
}

/** Bytes that this process has read from files so far. */
double bytesRead() {
    std::ifstream counters("/proc/self/io");
    std::string name;
    double count = 0;
    counters >> name >> count; // "rchar:" is the first
    return count;
}

} // namespace

void bench::timeCommand(const Arguments& arguments) {
    std::vector<char*> words;
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    const double start = now();
    const pid_t child = vfork();
    if (child == 0) {
        execvp(words[0], words.data());
        _exit(127);
    }
    int status = -1;
    waitpid(child, &status, 0);
    require(status == 0, arguments.at(0) + " failed");
    report(now() - start);
}

void bench::parseHex(const Arguments& arguments) {
    const double start = now();
    for (const std::string& file : arguments) {
        hexpage image;
        image.addRegion(0x08000000, 0x10000000, 2048);
        require(image.parse(file, false) && image.walkReachesAllData(), "cannot read the image");
    }
    report(now() - start);
}

void bench::checkCrc(const Arguments& arguments) {
    const std::string& whose = arguments.at(0);
    const auto crc = whose == "boost" ? crcByBoost : whose == "table" ? crcByTable : crcByUpdater;
    std::vector<std::uint8_t> data(1'000'000);
    std::uint32_t seed = 1;
    for (std::uint8_t& byte : data) {
        seed = seed * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(seed >> 24);
    }
    require(crc(data) == crcByTable(data), "the CRCs differ");
    const double start = now();
    for (int round = 0; round < CRC_ROUNDS; ++round) {
        data[0] = static_cast<std::uint8_t>(crc(data)); // so that no round can be left out
    }
    report(CRC_ROUNDS * static_cast<double>(data.size()) / MEGABYTE / (now() - start));
}

void bench::copyFile(const Arguments& arguments) {
    const double start = now();
    require(functs().copyFile(arguments.at(0), arguments.at(1), true), "cannot copy");
    report(now() - start);
}

void bench::checkPackage(const Arguments& arguments) {
    updateCoreLoad loader;
    const double readBefore = bytesRead();
    const double start = now();
    require(loader.validateFile(arguments.at(0)), "the package is not intact");
    report(now() - start);
    report((bytesRead() - readBefore) / functs().getFileSize(arguments.at(0)));
}
