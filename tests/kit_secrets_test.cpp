// The kit: plain bytes are overwritten before their memory is given back.

#include "support/protection.h"
#include "support/text.h"

#include <TarnoMirelo/kit/components.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

// The block that is watched, and what it held when it was given back.
const uint8_t* watched = nullptr;
size_t watchedSize = 0;
int overwritten = -1;  // -1: not given back yet

void release(void* block) noexcept {
    const auto* const bytes = static_cast<const uint8_t*>(block);
    if (block != nullptr && bytes == watched) {
        overwritten = std::all_of(bytes, bytes + watchedSize, [](uint8_t byte) { return byte == 0; }) ? 1 : 0;
    }
    std::free(block);
}

void watch(const uint8_t* bytes, size_t size) {
    watched = bytes;
    watchedSize = size;
    overwritten = -1;
}

}  // namespace

void* operator new[](size_t size) {
    void* const block = std::malloc(size);
    if (block == nullptr) throw std::bad_alloc();
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
        EXPECT_EQ(overwritten, 1);
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
    EXPECT_EQ(overwritten, 1);
}

}  // namespace TarnoMirelo
