// The kit: protected containers, in memory, in files and in streams.

#include "support/protection.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/kit/texts.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

using namespace TarnoMirelo;
using namespace TarnoMirelo::Kit;

namespace {

constexpr size_t kHeader = 32;
constexpr size_t kChunk = 1 << 20;
constexpr size_t kSealed = kChunk + 16;

// Text in which no two chunks are equal.
std::string content(size_t size) {
    std::string text(size, '\0');
    for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i % 251 + i / kChunk);
    return text;
}

Bytes fromHex(const std::string& text) {
    Bytes bytes;
    std::istringstream words(text);
    for (std::string word; words >> word;) bytes.push_back(static_cast<uint8_t>(std::stoi(word, nullptr, 16)));
    return bytes;
}

// A piece of a container.
Bytes part(const Bytes& container, size_t begin, size_t end) {
    return {container.begin() + static_cast<std::ptrdiff_t>(begin),
            container.begin() + static_cast<std::ptrdiff_t>(std::min(end, container.size()))};
}
Bytes headerOf(const Bytes& container) { return part(container, 0, kHeader); }
Bytes chunkOf(const Bytes& container, size_t number) {
    return part(container, kHeader + number * kSealed, kHeader + (number + 1) * kSealed);
}
Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& each : parts) all.insert(all.end(), each.begin(), each.end());
    return all;
}

std::string opened(const Bytes& container, const unsigned char* key = kTestKey) {
    SecretBytes plain;
    const MireloStatus status = unprotect(container.data(), container.size(), key, plain);
    EXPECT_TRUE(status.ok() || plain.data() == nullptr);
    return status.ok() ? std::string(plain.data(), plain.data() + plain.size()) : text(status);
}

// The same container through each way to open it: none gives a byte that was not protected, and none a whole.
void expectRefused(const Bytes& container, const std::string& protectedText, const std::string& what,
                   const unsigned char* key = kTestKey) {
    EXPECT_EQ(opened(container, key), kDoesNotOpen) << what;
    std::istringstream from(stringOf(container));
    std::ostringstream to;
    EXPECT_EQ(text(unprotectStream(from, key, to)), kDoesNotOpen) << what;
    EXPECT_EQ(protectedText.compare(0, to.str().size(), to.str()), 0) << what;
}

}  // namespace

TEST(KitProtection, GivesBackWhatItWasGiven) {
    const TempDir directory;
    for (const size_t size : {size_t{0}, size_t{1}, kChunk - 1, kChunk, kChunk + 1, 2 * kChunk, 3 * kChunk + 5}) {
        SCOPED_TRACE(size);
        const std::string plain = content(size);
        const Bytes inMemory = protectedBytes(plain);
        EXPECT_EQ(inMemory.size(), kHeader + size + 16 * std::max<size_t>(1, (size + kChunk - 1) / kChunk));
        Bytes inPlace(protectedSize(size));
        ASSERT_EQ(text(protect(plain.data(), size, kTestKey, inPlace.data())), kSuccess);
        std::istringstream plainStream(plain);
        std::ostringstream inStream;
        ASSERT_EQ(text(protectStream(plainStream, kTestKey, inStream)), kSuccess);
        const Filepath file = directory.write("plain", plain);
        const Filepath inFile = directory.path("container-\xC3\xA4");
        ASSERT_EQ(text(protectFile(file, kTestKey, inFile)), kSuccess);

        const Bytes containers[] = {inMemory, inPlace, bytesOf(inStream.str()),
                                    FileUtils().readBinaryFileToByteVector(inFile)};
        for (const Bytes& container : containers) {
            EXPECT_TRUE(opened(container) == plain);
            std::istringstream from(stringOf(container));
            std::ostringstream to;
            EXPECT_EQ(text(unprotectStream(from, kTestKey, to)), kSuccess);
            EXPECT_TRUE(to.str() == plain);
            const Filepath stored = directory.write("container", stringOf(container));
            EXPECT_EQ(text(unprotectFile(stored, kTestKey, directory.path("opened"))), kSuccess);
            EXPECT_TRUE(directory.read("opened") == plain);
            SecretBytes bytes;
            EXPECT_EQ(text(unprotectFile(stored, kTestKey, bytes)), kSuccess);
            EXPECT_TRUE(std::string(bytes.data(), bytes.data() + bytes.size()) == plain);
        }
        EXPECT_NE(containers[0], containers[1]);  // each has a nonce of its own
        EXPECT_NE(containers[1], containers[2]);
    }
}

// The example of docs/protection.md was made by another program; the other one by this one on Windows.
TEST(KitProtection, OpensContainersOfOtherPlatforms) {
    std::ifstream page(PROTECTION_PAGE);
    std::string example;
    for (std::string line; std::getline(page, line);) {
        if (line.find_first_not_of(" 0123456789abcdef") == std::string::npos) example += line + " ";
    }
    const std::string containers[] = {
        example,
        "54 4d 50 52 4f 54 45 43 01 82 28 ae 07 1c b8 96 89 31 db b6 aa 6d 96 07 82 d3 25 45 e5 e0 bf 70 "
        "88 75 cd 7e 93 cf 0f 49 64 d4 87 41 49 8e c5 c2 55 bf e1 47 84 4f 24",
    };
    for (const std::string& each : containers) EXPECT_EQ(opened(fromHex(each)), "weights");
}

// One bit, at each byte of the header, around each boundary of chunks, and at places in between.
TEST(KitProtection, OpensNothingWithAChangedBit) {
    const std::string plain = content(2 * kChunk + 100);
    Bytes container = protectedBytes(plain);
    std::vector<size_t> places;
    for (size_t i = 0; i < kHeader + 24; ++i) places.push_back(i);
    for (const size_t boundary : {kHeader + kSealed, kHeader + 2 * kSealed, container.size()}) {
        for (size_t i = boundary - 18; i < std::min(boundary + 18, container.size()); ++i) places.push_back(i);
    }
    for (size_t i = 1000; i < container.size(); i += 99991) places.push_back(i);
    for (const size_t place : places) {
        const auto bit = static_cast<uint8_t>(1U << place % 8);
        container[place] ^= bit;
        expectRefused(container, plain, "a bit at " + std::to_string(place));
        container[place] ^= bit;
    }
    EXPECT_EQ(opened(container), plain);
    expectRefused(container, plain, "another key", kOtherKey);
}

TEST(KitProtection, OpensNothingThatIsCutOrLonger) {
    for (const std::string& plain :
         {std::string(), std::string("weights"), content(kChunk), content(2 * kChunk + 20)}) {
        const Bytes container = protectedBytes(plain);
        for (size_t i = 0; i < container.size(); i += i < 100 || i + 100 > container.size() ? 1 : 4999) {
            expectRefused(part(container, 0, i), plain, "cut at " + std::to_string(i));
        }
        for (size_t chunks = 0; kHeader + chunks * kSealed < container.size(); ++chunks) {
            expectRefused(part(container, 0, kHeader + chunks * kSealed), plain, "cut behind a chunk");
        }
        for (const size_t more : {size_t{1}, size_t{16}, size_t{17}, kSealed}) {
            expectRefused(joined({container, Bytes(more)}), plain, "longer by " + std::to_string(more));
        }
    }
}

// Whole chunks that are authentic, each in a place that is not its own.
TEST(KitProtection, OpensNoChunkElsewhere) {
    const std::string plain = content(2 * kChunk + 10);
    const Bytes one = protectedBytes(plain);
    const Bytes two = protectedBytes(plain);
    const Bytes whole = protectedBytes(content(2 * kChunk));
    const Bytes empty = protectedBytes("");
    const Bytes header = headerOf(one);
    const auto chunk = [&one](size_t number) { return chunkOf(one, number); };
    const struct {
        const char* what;
        Bytes container;
    } cases[] = {
        {"two chunks swapped", joined({header, chunk(1), chunk(0), chunk(2)})},
        {"a chunk repeated", joined({header, chunk(0), chunk(0), chunk(1), chunk(2)})},
        {"a chunk in place of the next", joined({header, chunk(0), chunk(0), chunk(2)})},
        {"the first chunk left out", joined({header, chunk(1), chunk(2)})},
        {"a chunk left out", joined({header, chunk(0), chunk(2)})},
        {"the last chunk left out", joined({header, chunk(0), chunk(1)})},
        {"all but the last chunk left out", joined({header, chunk(2)})},
        {"the last chunk repeated", joined({one, chunk(2)})},
        {"a chunk of another container", joined({header, chunk(0), chunkOf(two, 1), chunk(2)})},
        {"the last chunk of another container", joined({header, chunk(0), chunk(1), chunkOf(two, 2)})},
        {"the header of another container", joined({headerOf(two), chunk(0), chunk(1), chunk(2)})},
        {"two containers, one behind the other", joined({one, two})},
        {"an empty container behind whole chunks", joined({whole, part(empty, kHeader, empty.size())})},
        {"a container as a chunk of another", joined({header, chunk(0), two})},
    };
    ASSERT_EQ(opened(joined({header, chunk(0), chunk(1), chunk(2)})), plain);
    for (const auto& each : cases) expectRefused(each.container, plain, each.what);
}

TEST(KitProtection, WantsAKeyAndASizeThatItCanHold) {
    const std::string noKey = "7: The key is all zero, wanted are 16 bytes that are secret";
    const Bytes container = protectedBytes("weights");
    Bytes made;
    EXPECT_EQ(text(protect("weights", 7, kNoKey, made)), noKey);
    EXPECT_EQ(text(protect("weights", kLargestProtected + 1, kTestKey, made)),
              "7: The content is larger than 4 PiB, wanted is what a protected container can hold");
    EXPECT_TRUE(made.empty());
    EXPECT_EQ(opened(container, kNoKey), noKey);
    std::istringstream from(stringOf(container));
    std::ostringstream to;
    EXPECT_EQ(text(unprotectStream(from, kNoKey, to)), noKey);
    EXPECT_EQ(text(protectStream(from, kNoKey, to)), noKey);
    EXPECT_EQ(to.str(), "");
}

TEST(KitProtection, SaysWhenAStreamFails) {
    std::istringstream plain(content(kChunk));
    std::ostringstream to;
    to.setstate(std::ios::badbit);
    EXPECT_EQ(text(protectStream(plain, kTestKey, to)), "3: The stream to write to fails");
    std::istringstream failed("content");
    failed.setstate(std::ios::failbit);
    std::ostringstream out;
    EXPECT_EQ(text(protectStream(failed, kTestKey, out)), "3: The stream to read from has failed already");
    EXPECT_EQ(out.str(), "");
    struct : std::streambuf {
        int_type underflow() override { throw std::runtime_error("the disk is gone"); }
    } broken;
    std::istream breaking(&broken);
    EXPECT_EQ(text(unprotectStream(breaking, kTestKey, out)), "3: The stream to read from fails");
}

// Only whole files get their name; what was there stays.
TEST(KitProtection, LeavesNothingBehindWhereAFileFails) {
    const TempDir directory;
    const Filepath plain = directory.write("plain", content(kChunk + 1));
    const Filepath unsealed = plain;  // taken for a container
    const Filepath there = directory.write("there", "as it was");
    Bytes damaged = protectedBytes(content(kChunk + 1));
    damaged.back() ^= 1;
    const Filepath container = directory.write("container", stringOf(damaged));
    std::filesystem::create_directory(directory.native() / "directory");
    const Filepath absent = directory.path("absent");
    const Filepath nowhere = directory.path("absent\\file");
    const Filepath taken = directory.path("directory");
    const struct {
        MireloStatus status;
        std::string expected;
    } cases[] = {
        {unprotectFile(container, kTestKey, there), kDoesNotOpen},
        {unprotectFile(unsealed, kTestKey, there), kDoesNotOpen},
        {protectFile(plain, kNoKey, there), "7: The key is all zero, wanted are 16 bytes that are secret"},
        {protectFile(absent, kTestKey, there), "3: Cannot open the file " + toText(absent) + ": "},
        {protectFile(taken, kTestKey, there), "3: Cannot open the file " + toText(taken) + ": "},
        {protectFile(plain, kTestKey, nowhere), "3: Cannot write the file " + toText(nowhere) + ": "},
        {protectFile(plain, kTestKey, taken), "3: Cannot write the file " + toText(taken) + ": "},
        {protectFile(plain, kTestKey, Filepath("\xFF")), "3: The path is not UTF-8"},
    };
    for (const auto& each : cases) EXPECT_EQ(upToReason(text(each.status), each.expected), each.expected);
    EXPECT_EQ(directory.read("there"), "as it was");
    SecretBytes bytes;
    EXPECT_EQ(text(unprotectFile(container, kTestKey, bytes)), kDoesNotOpen);
    EXPECT_EQ(text(unprotectFile(plain, kTestKey, bytes)), kDoesNotOpen);
    EXPECT_EQ(bytes.data(), nullptr);
    for (const auto& entry : std::filesystem::directory_iterator(directory.native())) {
        EXPECT_NE(entry.path().extension(), ".part") << entry.path();
    }
    EXPECT_EQ(text(protectFile(plain, kTestKey, there)), kSuccess);
    EXPECT_EQ(opened(bytesOf(directory.read("there"))), content(kChunk + 1));
}

TEST(KitProtection, DrawsKeysThatDiffer) {
    unsigned char keys[2][16] = {};
    for (auto& key : keys) ASSERT_EQ(text(newProtectionKey(key)), kSuccess);
    EXPECT_EQ(opened(protectedBytes("weights", keys[0]), keys[0]), "weights");
    EXPECT_EQ(opened(protectedBytes("weights", keys[0]), keys[1]), kDoesNotOpen);
}

TEST(KitProtection, KeepsSecretsInOnePlace) {
    SecretBytes bytes(3);
    std::fill_n(bytes.data(), 3, uint8_t{7});
    const uint8_t* const where = bytes.data();
    SecretBytes moved(std::move(bytes));
    EXPECT_EQ(moved.data(), where);
    SecretBytes assigned(5);
    assigned = std::move(moved);
    EXPECT_EQ(assigned.data(), where);
    EXPECT_EQ(assigned.size(), 3U);
    EXPECT_EQ(moved.size(), 0U);  // NOLINT(bugprone-use-after-move): that is asked about
}
