// The kit's files, when the system fails underneath.

#include "support/full_disk.h"
#include "support/protection.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/kit/texts.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace TarnoMirelo;
using namespace TarnoMirelo::Kit;

namespace {

// The names in a directory, each with a space behind it.
std::string namesIn(const TempDir& directory) {
    std::string names;
    for (const auto& entry : std::filesystem::directory_iterator(directory.native())) {
        names += entry.path().filename().string() + " ";
    }
    return names;
}

}  // namespace

// Where it has no room left, and where it says so at the end alone.
TEST(KitFileFailures, AFullDiskGetsNoHalfFile) {
    const TempDir from;
    const TempDir to;
    const std::string content(3000000, 'w');
    const Filepath plain = from.write("plain", content);
    const Filepath container = from.write("container", stringOf(protectedBytes(content)));
    const Filepath target = to.path("file");
    for (const rlim_t bytes : {0UL, 31UL, 32UL, 1000UL, 1048608UL, 2999999UL}) {
        const Room room(bytes);
        const std::string refusal = "3: Cannot write the file " + toText(target) + ": File too large";
        EXPECT_EQ(text(protectFile(plain, kTestKey, target)), refusal);
        EXPECT_EQ(text(unprotectFile(container, kTestKey, target)), refusal);
        EXPECT_EQ(namesIn(to), "") << bytes;
    }
}

// A process that dies while it writes: what it leaves does not bear the name.
TEST(KitFileFailures, AnInterruptedProcessLeavesNoHalfFileUnderTheName) {
    const TempDir from;
    const TempDir to;
    const Filepath plain = from.write("plain", std::string(3000000, 'w'));
    const pid_t child = fork();
    if (child == 0) {
        const Room room(2000000);
        std::signal(SIGXFSZ, SIG_DFL);  // ends the process at the write that has no room
        protectFile(plain, kTestKey, to.path("file"));
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    const std::string left = namesIn(to);
    EXPECT_EQ(left.compare(0, 5, "file."), 0) << left;
    EXPECT_EQ(left.substr(left.size() - std::min<size_t>(left.size(), 6)), ".part ");
}

// Who may not read the weights may not read them when they have been protected and opened again.
TEST(KitFileFailures, APrivateFileStaysPrivate) {
    namespace fs = std::filesystem;
    const TempDir directory;
    const mode_t mask = umask(022);
    const fs::perms shared = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
    for (const fs::perms permissions : {fs::perms::owner_read | fs::perms::owner_write, shared}) {
        const Filepath plain = directory.write("plain", "weights");
        fs::permissions(directory.native() / "plain", permissions);
        directory.write("opened", "of a file that everybody may read");
        ASSERT_EQ(text(protectFile(plain, kTestKey, directory.path("container"))), kSuccess);
        ASSERT_EQ(text(unprotectFile(directory.path("container"), kTestKey, directory.path("opened"))), kSuccess);
        for (const char* const name : {"container", "opened"}) {
            EXPECT_EQ(fs::status(directory.native() / name).permissions(), permissions) << name;
        }
    }
    umask(mask);
}

// Neither is a device replaced by a file, nor a pipe waited for.
TEST(KitFileFailures, WhatIsNoFileIsLeftAlone) {
    const TempDir directory;
    const Filepath plain = directory.write("plain", "weights");
    const Filepath pipe = directory.path("pipe");
    const Filepath link = directory.path("link");
    ASSERT_EQ(mkfifo((directory.native() / "pipe").c_str(), 0600), 0);
    ASSERT_EQ(symlink("pipe", (directory.native() / "link").c_str()), 0);
    const std::string noFile = ": it is no regular file";
    for (const Filepath& path : {pipe, link}) {
        EXPECT_EQ(text(protectFile(plain, kTestKey, path)), "3: Cannot write the file " + toText(path) + noFile);
        const Filepath& target = plain;
        EXPECT_EQ(text(protectFile(path, kTestKey, target)), "3: Cannot open the file " + toText(path) + noFile);
    }
    EXPECT_TRUE(std::filesystem::is_fifo(directory.native() / "pipe"));
    EXPECT_TRUE(std::filesystem::is_symlink(directory.native() / "link"));
    EXPECT_EQ(directory.read("plain"), "weights");
}
