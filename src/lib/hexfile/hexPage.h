#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/**
 * A firmware image cut into the pages that a bootloader writes. Declare the processor's regions, switch
 * to PIC24 addressing if it is one, parse the Intel HEX file, then walk the pages.
 *
 * Bytes are only ever appended to a page, in file order: the offset of an address inside its page places
 * nothing and gaps are not filled. An image is therefore right only when its records ascend without gaps
 * inside each page, as those of the modules' compilers do.
 *
 * Addresses are in the target's units: bytes, or words of two bytes in PIC24 mode. Used by one action at
 * a time, on the update thread.
 */
class hexpage {
public:
    struct MEMORY_PAGE {
        std::uint32_t startAddress = 0;
        std::uint32_t endAddress = 0;   ///< inclusive
        std::uint32_t lastAddress = 0;  ///< where the latest record's bytes went in this page
        std::uint32_t lastLength = 0;   ///< address units of that whole record
        std::vector<std::uint8_t> data; ///< in order of arrival
        std::uint32_t dataLength = 0;   ///< not maintained: use data.size()
        std::uint32_t checksum = 0;     ///< CRC-16 of `data`, set at the end of parse()
        std::uint32_t ptr = 0;          ///< free for the caller

        bool operator==(const MEMORY_PAGE&) const = default;
    };

    struct MEMORY_REGION {
        std::uint32_t startAddress = 0;
        std::uint32_t endAddress = 0;   ///< exclusive
        std::uint32_t blockSize = 0;    ///< data bytes a page
        std::vector<MEMORY_PAGE> pages; ///< ascending, without gaps from the region's start

        bool operator==(const MEMORY_REGION&) const = default;
    };

    hexpage() = default;
    hexpage(const hexpage&) = delete; ///< cur_pg and cur_rg point into the object
    hexpage& operator=(const hexpage&) = delete;

    /** Drops all regions and pages, and PIC24 mode: set it again afterwards. */
    void clear();

    void setPIC24() { cfg_pic24 = true; }

    /**
     * Regions may overlap: the one added last then gets the data, the others empty pages. A region with a
     * block size of 0 could hold no data and is ignored.
     */
    void addRegion(std::uint32_t startAddress, std::uint32_t endAddress, std::uint32_t blockSize);

    /**
     * Adds the file's data to the pages, making every page from a region's start up to the data. `rev` is
     * the byte order of the page checksums (crc16). Data outside every region is dropped.
     * False when the file cannot be opened or read (a directory); the pages are then of no use. Throws
     * std::out_of_range when a record's byte count reaches behind its line.
     */
    bool parse(const std::string& fileName, bool rev);

    std::uint32_t getTotalPages() const;
    const std::vector<MEMORY_REGION>& getRegions() const { return regions; }

    /** Data bytes of the file that the latest parse() had no page for. */
    std::size_t droppedBytes() const { return dropped; }

    /**
     * Whether the walk below meets every page with data, and there is one. An image for which this is
     * false must not be flashed: the module would be erased and not, or only partly, written.
     */
    bool walkReachesAllData() const;

    /**
     * The walk over the pages. It ends, with null, at the first region without pages; regions behind that
     * one are not reached. A page stays valid until pages are added (parse) or dropped (clear).
     */
    void resetIterator();
    MEMORY_PAGE* getNextPage();

    /**
     * Dumps on standard output: an overview; one page by region and page index (a region out of range
     * means the current one); the bytes of a page, 16 or in PIC24 mode 12 a line.
     */
    void print();
    void print(std::uint32_t rg, std::uint32_t pg);
    void print(const MEMORY_PAGE& page, std::uint32_t blockSize) const;

private:
    struct DATA_RECORD; ///< a type 00 record

    void parseLine(std::string_view line);
    void placeRecord(const DATA_RECORD& record);
    void placeRest(const DATA_RECORD& record, std::uint32_t index);
    std::uint32_t appendBytes(const DATA_RECORD& record, std::uint32_t index, std::size_t pageLimit);
    void markRecord(const DATA_RECORD& record, std::uint32_t address);
    bool isPhantom(std::uint32_t index) const { return cfg_pic24 && index % 4 == 3; }
    void searchForSection(std::uint32_t address);
    void newPage();
    void finishPages(bool rev);

    bool isInit = false; ///< a file has been parsed
    std::vector<MEMORY_REGION> regions;
    MEMORY_PAGE* cur_pg = nullptr;
    MEMORY_REGION* cur_rg = nullptr;
    std::uint32_t address_app = 0;    ///< start address of the program, type 05
    std::uint32_t address_extLin = 0; ///< upper half of data addresses, type 04
    std::uint32_t region_ptr = 0;     ///< the walk's next page
    std::uint32_t mem_ptr = 0;
    bool cfg_pic24 = false;
    std::size_t dropped = 0;
};
