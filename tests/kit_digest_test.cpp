// The kit: digests of bytes and of files.

#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/kit/digest.h>
#include <TarnoMirelo/kit/texts.h>

#include <gtest/gtest.h>

using namespace TarnoMirelo;
using namespace TarnoMirelo::Kit;

TEST(KitDigest, IsTheSameOfBytesAndOfAFile) {
    const TempDir directory;
    const struct {
        std::string bytes;
        const char* digest;
    } cases[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {std::string(1000000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto& each : cases) {
        std::string digest;
        EXPECT_EQ(text(sha256(each.bytes.data(), each.bytes.size(), digest)), kSuccess);
        EXPECT_EQ(digest, each.digest);
        digest.clear();
        EXPECT_EQ(text(sha256OfFile(directory.write("weights-\xC3\xA4", each.bytes), digest)), kSuccess);
        EXPECT_EQ(digest, each.digest);
    }
}

TEST(KitDigest, SaysWhichFileCannotBeRead) {
    const TempDir directory;
    std::string digest = "as it was";
    const Filepath absent = directory.path("absent");
    for (const Filepath& path : {absent, directory.path()}) {
        const std::string expected = "3: Cannot open the file " + toText(path) + ": ";
        EXPECT_EQ(upToReason(text(sha256OfFile(path, digest)), expected), expected);
    }
    EXPECT_EQ(text(sha256OfFile(Filepath("\xFF"), digest)), "3: The path is not UTF-8");
    EXPECT_EQ(digest, "as it was");
}
