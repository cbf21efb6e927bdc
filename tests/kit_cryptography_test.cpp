// The kit's cryptography, on each system's own library: published vectors.

#include "cryptography.h"

#include <TarnoMirelo/status.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace TarnoMirelo::Kit::Cryptography;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes fromHex(const std::string& text) {
    Bytes bytes;
    for (size_t i = 0; i < text.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

template <typename Array>
Array arrayOf(const std::string& hex) {
    Array array;
    const Bytes bytes = fromHex(hex);
    std::copy(bytes.begin(), bytes.end(), array.begin());
    return array;
}

template <typename Container>
std::string toHex(const Container& bytes) {
    std::string text;
    for (const uint8_t byte : bytes) text += {"0123456789abcdef"[byte / 16], "0123456789abcdef"[byte % 16]};
    return text;
}

}  // namespace

// FIPS 180-4's examples, given in pieces of each size.
TEST(KitCryptography, HashesAsPublished) {
    const struct {
        std::string text;
        const char* digest;
    } cases[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {std::string(1000000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto& each : cases) {
        for (const size_t piece : {size_t{1}, size_t{63}, size_t{64}, size_t{1} << 20}) {
            Sha256 hash;
            for (size_t i = 0; i < each.text.size(); i += piece) {
                hash.update(&each.text[i], std::min(piece, each.text.size() - i));
            }
            EXPECT_EQ(toHex(hash.finish()), each.digest) << each.text.size() << " bytes in pieces of " << piece;
        }
    }
}

// RFC 4231, cases 1, 2 and 6, whose key is longer than a block.
TEST(KitCryptography, AuthenticatesWithHmacAsPublished) {
    const struct {
        std::string key, data;
        const char* digest;
    } cases[] = {
        {std::string(20, '\x0b'), "Hi There", "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
        {"Jefe", "what do ya want for nothing?", "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
        {std::string(131, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First",
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(toHex(hmacSha256(each.key.data(), each.key.size(), each.data.data(), each.data.size())), each.digest);
    }
}

// McGrew and Viega, "The Galois/Counter Mode of Operation", test cases 1 to 4. Then each byte of what is sealed, of the
// associated data and of the nonce is changed.
TEST(KitCryptography, SealsAsPublishedAndOpensNothingElse) {
    const std::string plain =
        "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e2449a6b525b16aedf5aa0de6"
        "57ba637b391aafd255";
    const std::string sealed =
        "42831ec2217774244b7221b784d0d49ce3aa212f2c02a4e035c17e2329aca12e21d514b25466931c7d8f6a5aac84aa051ba30b396a0aac"
        "973d58e091473f5985";
    const std::string key = "feffe9928665731c6d6a8f9467308308";
    const std::string nonce = "cafebabefacedbaddecaf888";
    const std::string zeros(32, '0');
    const struct {
        std::string key, nonce, associated, plain, sealed, tag;
    } cases[] = {
        {zeros, zeros.substr(8), "", "", "", "58e2fccefa7e3061367f1d57a4e7455a"},
        {zeros, zeros.substr(8), "", zeros, "0388dace60b6a392f328c2b971b2fe78", "ab6e47d42cec13bdf53a67b21257bddf"},
        {key, nonce, "", plain, sealed, "4d5c2af327cd64a62cf35abd2ba6fab4"},
        {key, nonce, "feedfacedeadbeeffeedfacedeadbeefabaddad2", plain.substr(0, 120), sealed.substr(0, 120),
         "5bc94fbc3221a5db94fae95ae7121a47"},
    };
    for (const auto& each : cases) {
        AesGcm cipher(arrayOf<Key>(each.key));
        auto number = arrayOf<Nonce>(each.nonce);
        Bytes associated = fromHex(each.associated);
        const Bytes text = fromHex(each.plain);
        Bytes out(text.size() + kTagSize);
        cipher.seal(number, associated.data(), associated.size(), text.data(), text.size(), out.data());
        EXPECT_EQ(toHex(out), each.sealed + each.tag);

        Bytes back(text.size());
        const auto opens = [&] {
            return cipher.open(number, associated.data(), associated.size(), out.data(), text.size(), back.data());
        };
        EXPECT_TRUE(opens());
        EXPECT_EQ(back, text);
        const auto changeEach = [&](const char* what, auto& bytes) {
            for (auto& byte : bytes) {
                byte ^= 1;
                EXPECT_FALSE(opens()) << what << " of " << text.size() << " bytes";
                byte ^= 1;
            }
        };
        changeEach("sealed", out);
        changeEach("associated", associated);
        changeEach("nonce", number);
        EXPECT_TRUE(opens());
    }
}

TEST(KitCryptography, DrawsOtherBytesEachTimeAndWipesThem) {
    Digest first{};
    Digest second{};
    randomBytes(first.data(), first.size());
    randomBytes(second.data(), second.size());
    EXPECT_NE(first, second);
    EXPECT_NE(first, Digest{});
    wipe(first.data(), first.size());
    EXPECT_EQ(first, Digest{});
}
