// The kit: plain bytes and keys are overwritten before their memory is given back.

#include "support/protection.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/kit/components.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// The block that is watched, and what it held when it was given back.
const uint8_t* watched = nullptr;
size_t watchedSize = 0;  // 0: none
size_t overwritten = 0;  // bytes

bool keysAreWatched = false;
size_t blocksWithKey = 0;  // that were given back meanwhile
size_t largest = 0;        // block since it was set to 0

void release(void* block) noexcept {
    const auto* const bytes = static_cast<const uint8_t*>(block);
    if (block != nullptr && bytes == watched) {
        overwritten = static_cast<size_t>(std::count(bytes, bytes + watchedSize, uint8_t{0}));
        watched = nullptr;
        watchedSize = 0;
    }
    std::free(block);
}

void watch(const uint8_t* bytes, size_t size) {
    watched = bytes;
    watchedSize = size;
    overwritten = 0;
}
// The next block of that size, which is filled with ones.
void watchNext(size_t size) { watch(nullptr, size); }

}  // namespace

[[gnu::noinline]] void* operator new(size_t size) {
    if (void* const block = std::calloc(1, size)) return block;  // with bytes that may be looked at
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t size) noexcept {
    if (keysAreWatched) {
        const auto* const bytes = static_cast<const uint8_t*>(block);
        const unsigned char* const key = TarnoMirelo::kTestKey;
        if (std::search(bytes, bytes + size, key, key + sizeof TarnoMirelo::kTestKey) != bytes + size) ++blocksWithKey;
    }
    std::free(block);
}
void* operator new[](size_t size) {
    void* const block = std::malloc(size);
    if (block == nullptr) throw std::bad_alloc();
    largest = std::max(largest, size);
    if (watched == nullptr && size > 0 && size == watchedSize) {
        watched = static_cast<const uint8_t*>(std::memset(block, 0xFF, size));
    }
    return block;
}
void operator delete[](void* block) noexcept { release(block); }
void operator delete[](void* block, size_t /*size*/) noexcept { release(block); }

namespace TarnoMirelo {

TEST(KitSecrets, AreOverwrittenBeforeTheirMemoryIsGivenBack) {
    const std::string plain(1000, 'w');
    const Bytes container = protectedBytes(plain);
    {
        Kit::SecretBytes bytes;
        ASSERT_EQ(text(Kit::unprotect(container.data(), container.size(), kTestKey, bytes)), kSuccess);
        watch(bytes.data(), plain.size());
        ASSERT_EQ(bytes.data()[999], 'w');
        bytes = Kit::SecretBytes();
        EXPECT_EQ(overwritten, plain.size());
    }
    ModelComponent component;
    component.type = ComponentKind::SecuredMemoryStream;
    component.buffer = container;
    component.setCryptoKey(kTestKey);
    {
        Kit::ComponentBytes bytes;
        ASSERT_EQ(text(Kit::readComponent(component, Filepath(), bytes)), kSuccess);
        watch(bytes.data(), plain.size());
    }
    EXPECT_EQ(overwritten, plain.size());
}

// What is no container, or fails late, costs what was opened of it.
TEST(KitSecrets, CostNothingBeforeTheyOpen) {
    const TempDir directory;
    const Filepath file = directory.write("container", stringOf(protectedBytes("weights")));
    constexpr size_t kChunk = 1 << 20;
    constexpr size_t kContent = 8 * kChunk;
    Bytes container = protectedBytes(std::string(kContent, 'w'));
    const auto expectRefused = [&](const unsigned char* key, size_t expected) {
        Kit::SecretBytes plain;
        watchNext(kContent);
        EXPECT_EQ(text(Kit::unprotect(container.data(), container.size(), key, plain)), kDoesNotOpen);
        EXPECT_EQ(overwritten, expected);
        directory.write("container", stringOf(container));
        watchNext(kContent);
        largest = 0;
        EXPECT_EQ(text(Kit::unprotectFile(file, key, plain)), kDoesNotOpen);
        EXPECT_EQ(overwritten, key == kTestKey ? expected - kChunk : 0);  // a chunk opens in a memory of its own
        EXPECT_EQ(largest < 2 * kChunk, key != kTestKey);
    };
    expectRefused(kOtherKey, kChunk);
    container[32 + 2 * (kChunk + 16)] ^= 1;
    expectRefused(kTestKey, 3 * kChunk);
}

TEST(KitSecrets, KeysAreInTheMetadataAlone) {
    ModelTarget target;
    target.components.resize(2);
    target.components[1].type = ComponentKind::SecuredFile;
    ModelMetadata metadata;
    metadata.setTargets({{MireloModelType::WinML, target}});
    blocksWithKey = 0;
    keysAreWatched = true;
    const MireloStatus status = Kit::setProtectionKey(metadata, MireloModelType::WinML, kTestKey);
    keysAreWatched = false;
    ASSERT_EQ(text(status), kSuccess);
    EXPECT_EQ(blocksWithKey, 0U);
}

}  // namespace TarnoMirelo
