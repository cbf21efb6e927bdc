// How archives are varied: within blocks and by whole blocks most of the time, with headers that add up again, since
// nearly every other change would end at the first checksum.

#include "support/tar_model.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

constexpr size_t kBlock = 512;

struct Field {
    size_t offset, width;
};
constexpr Field kFields[] = {{0, 100}, {124, 12}, {156, 1}, {257, 6}, {345, 155}, {0, kBlock}};

void repairChecksum(uint8_t* header) {
    char text[16];
    static_cast<void>(std::snprintf(text, sizeof text, "%06o", TarnoMirelo::tarChecksum(header)));
    std::memcpy(header + 148, text, 7);
}

void repairChecksums(uint8_t* data, size_t size) {
    for (size_t offset = 0; offset + kBlock <= size && data[offset] != 0;) {
        repairChecksum(data + offset);
        const char* const field = reinterpret_cast<const char*>(data) + offset + 124;
        uint32_t entrySize = 0;
        std::from_chars(field, field + 12, entrySize, 8);
        offset += kBlock + (size_t{entrySize} + kBlock - 1) / kBlock * kBlock;
    }
}

void mutateField(uint8_t* data, size_t size, std::mt19937& random) {
    const Field& field = kFields[random() % std::size(kFields)];
    uint8_t* const begin = data + random() % (size / kBlock) * kBlock + field.offset;
    const auto used = static_cast<size_t>(std::find(begin, begin + field.width, 0) - begin);
    const size_t written = LLVMFuzzerMutate(begin, std::max<size_t>(used, 1), field.width);
    std::fill(begin + written, begin + std::max(used, written), uint8_t{0});
}

// Repeats a block, or takes one out.
size_t mutateBlocks(uint8_t* data, size_t size, size_t maxSize, std::mt19937& random) {
    uint8_t* const block = data + random() % (size / kBlock) * kBlock;
    if (random() % 2 == 0 && size + kBlock <= maxSize) {
        std::copy_backward(block, data + size, data + size + kBlock);
        return size + kBlock;
    }
    std::copy(block + kBlock, data + size, block);
    return size - kBlock;
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
    std::mt19937 random(seed);
    const auto choice = random() % 8;
    if (size < kBlock || choice == 0) {
        size = LLVMFuzzerMutate(data, size, maxSize);
    } else if (choice == 1) {
        size = mutateBlocks(data, size, maxSize, random);
    } else {
        mutateField(data, size, random);
    }
    if (random() % 16 != 0) repairChecksums(data, size);
    return size;
}
