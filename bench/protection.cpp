// Protecting and opening containers in memory, beside the cipher library alone; and loading a network that is
// protected, beside the same one in plain.

#include "measure.h"

#include <TarnoMirelo/kit/protection.h>
#if defined(VOICE_NETWORK)  // where the engine and the network could be fetched
#include <TarnoMirelo/onnxruntime.h>
#endif

#include <memory>
#include <openssl/evp.h>
#include <stdexcept>

namespace Bench {
namespace {

using namespace TarnoMirelo;

constexpr size_t kSize = size_t{64} << 20;
constexpr unsigned char kKey[16] = {1, 2, 3};
constexpr unsigned char kNonce[12] = {};

void require(bool good) {
    if (!good) throw std::runtime_error("the cipher fails");
}

// All bytes in one piece.
void runCipher(const uint8_t* from, bool sealing, unsigned char* tag, uint8_t* to) {
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                                  EVP_CIPHER_CTX_free);
    int length = 0;
    require(EVP_CipherInit_ex(context.get(), EVP_aes_128_gcm(), nullptr, kKey, kNonce, sealing ? 1 : 0) == 1);
    if (!sealing) require(EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, 16, tag) == 1);
    require(EVP_CipherUpdate(context.get(), to, &length, from, int{kSize}) == 1);
    require(EVP_CipherFinal_ex(context.get(), to + kSize, &length) == 1);
    if (sealing) require(EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, 16, tag) == 1);
}

// New memory, which nobody fills before it is written.
using Memory = std::unique_ptr<uint8_t[]>;
Memory newMemory(uint64_t size) { return Memory(new uint8_t[size]); }

#if defined(VOICE_NETWORK)

// Loads the network from the scratch directory.
void load(const char* file, const char* kind) {
    ModelMetadata metadata;
    require(metadata.load(Filepath(VOICE_MANIFEST)).ok());
    ModelTarget target = metadata.getTargetMetadata(MireloModelType::WinML);
    target.components[0].path = file;
    target.components[0].type = kind;
    target.components[0].setCryptoKey(kKey);
    OnnxRuntime::Options options;
    options.threadsWithinNodes = 1;
    OnnxRuntime::Model model("voice", MireloModelType::WinML, MireloConfig(), options);
    require(model.load({MireloModelType::WinML, target, Filepath(scratchDirectory().string())}).ok());
}

void addLoads() {
    const Filepath plain(scratchDirectory() / "voice.onnx");
    std::filesystem::copy_file(VOICE_NETWORK, plain.getPathString());
    require(Kit::protectFile(plain, kKey, Filepath(scratchDirectory() / "voice.protected")).ok());
    const auto nothing = [] {};
    measurePrepared(
        "load, voice, protected", Side::Ours, nothing, [] { load("voice.protected", "secured_file"); }, 15);
    measurePrepared(
        "load, voice, protected", Side::Limit, nothing, [] { load("voice.onnx", "file"); }, 15);
}

#else
void addLoads() {}
#endif

}  // namespace

void addProtection() {
    const auto plain = std::make_shared<std::vector<uint8_t>>(kSize, uint8_t{'w'});
    const auto container = std::make_shared<std::vector<uint8_t>>();
    require(Kit::protect(plain->data(), kSize, kKey, *container).ok());
    const auto tag = std::make_shared<std::array<unsigned char, 16>>();
    const std::shared_ptr<uint8_t[]> sealed = newMemory(kSize);
    runCipher(plain->data(), true, tag->data(), sealed.get());

    const auto made = std::make_shared<Memory>();
    const auto vector = std::make_shared<std::vector<uint8_t>>();
    const auto opened = std::make_shared<Kit::SecretBytes>();
    const auto release = [=] {  // what the round before has made
        made->reset();
        *vector = std::vector<uint8_t>();
        *opened = Kit::SecretBytes();
    };
    const auto add = [&](const char* row, Side side, auto work) { measurePrepared(row, side, release, work, 45); };
    add("Kit::protect, 64 MiB", Side::Ours, [=] {
        *made = newMemory(Kit::protectedSize(kSize));
        require(Kit::protect(plain->data(), kSize, kKey, made->get()).ok());
    });
    add("Kit::protect, 64 MiB", Side::Limit, [=] {
        *made = newMemory(kSize);
        runCipher(plain->data(), true, tag->data(), made->get());
    });
    add("Kit::protect, 64 MiB into a vector", Side::Ours,
        [=] { require(Kit::protect(plain->data(), kSize, kKey, *vector).ok()); });
    add("Kit::protect, 64 MiB into a vector", Side::Limit, [=] {
        vector->resize(kSize);
        runCipher(plain->data(), true, tag->data(), vector->data());
    });
    add("Kit::unprotect, 64 MiB", Side::Ours,
        [=] { require(Kit::unprotect(container->data(), container->size(), kKey, *opened).ok()); });
    add("Kit::unprotect, 64 MiB", Side::Limit, [=] {
        *made = newMemory(kSize);
        runCipher(sealed.get(), false, tag->data(), made->get());
    });
    addLoads();
}

}  // namespace Bench
