// What becomes of file operations when the system fails underneath.

#include "support/full_disk.h"
#include "support/tar_builder.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/logging.h>
#include <TarnoMirelo/manifest.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TarnoMirelo {
namespace {

// As a user who may read nothing that was closed to him; root could.
class PlainUser {
 public:
    PlainUser() { EXPECT_TRUE(getuid() != 0 || seteuid(65534) == 0); }
    PlainUser(const PlainUser&) = delete;
    PlainUser& operator=(const PlainUser&) = delete;
    ~PlainUser() { EXPECT_TRUE(getuid() != 0 || seteuid(0) == 0); }
};

class FileFailures : public testing::Test {
 protected:
    // What every way of reading a file whole makes of it.
    std::string readAll(const Filepath& path) {
        uint64_t size = 99;
        char buffer[16] = {};
        const bool present = files.readBinaryFileToBuffer(path, size) != nullptr;
        return list(present, size, files.readBinaryFileToVector(path).size(),
                    files.readBinaryFileToByteVector(path).size(), raised([&] { files.getFileSize(path); }),
                    raised([&] { files.readBinaryFileToAllocated(path, size, buffer); }),
                    raised([&] { files.readBinaryFileToString(path); }));
    }
    const std::string unreadable = "0 99 0 0 3: File error! 3: File error! 2: Failed to open file";
    const TempDir directory;
    FileUtils files;
};

// Without waiting for anybody: a pipe has no writer here, and then no reader.
TEST_F(FileFailures, WhatIsNoFileCannotBeOpened) {
    const Filepath fine = directory.write("file", "1234");
    EXPECT_EQ(readAll(fine), "1 4 4 4 nothing nothing nothing");
    const Filepath pipe = directory.path("pipe");
    const Filepath socket = directory.path("socket");
    ASSERT_EQ(mkfifo((directory.native() / "pipe").c_str(), 0600), 0);
    ASSERT_EQ(mknod((directory.native() / "socket").c_str(), S_IFSOCK | 0600, 0), 0);
    for (const Filepath& path : {directory.path(), pipe, socket, Filepath("\\dev\\zero"), Filepath()}) {
        EXPECT_EQ(readAll(path), unreadable) << path.c_str();
        ModelMetadata manifest;
        EXPECT_EQ(manifest.load(path).getCode(), MODEL_METADATA_ERROR);
    }
    const auto writeAll = [&](const Filepath& path) {
        EXPECT_TRUE(files.writeStringToFile("text", path));
        EXPECT_TRUE(files.writeBinaryDataToFile(nullptr, 0, path));
        EXPECT_FALSE(files.openFileToWriteBinaryData(path).is_open());
        EXPECT_FALSE(files.openFileToStreamBinaryData(path).is_open());
        const std::string name = path.getPathString();
        LogProcessorFileSystem(directory.native().string(), name.substr(name.rfind('\\') + 1), false).Process({"text"});
    };
    for (const Filepath& path : {directory.path(), pipe, socket}) writeAll(path);
    const int reader = open((directory.native() / "pipe").c_str(), O_RDWR | O_NONBLOCK);
    writeAll(pipe);
    char byte = 0;
    EXPECT_EQ(read(reader, &byte, 1), -1);  // nothing came
    close(reader);
    std::ofstream device = files.openFileToWriteBinaryData(Filepath("\\dev\\null"));  // which takes what it is given
    EXPECT_TRUE(files.streamBinaryDataToFile(&byte, 1, device));
    uint64_t size = files.getFileSize(fine);
    files.deleteFile(fine);  // between two calls of a host
    char buffer[4];
    EXPECT_EQ(raised([&] { files.readBinaryFileToAllocated(fine, size, buffer); }), "3: File error!");
    EXPECT_EQ(readAll(fine), unreadable);
}

TEST_F(FileFailures, WithoutPermission) {
    const Filepath inside = directory.path("closed\\file");
    files.createDir(inside.parent_path());
    directory.write("closed/file", "1234");
    chmod((directory.native() / "closed").c_str(), 0);
    {
        const PlainUser user;
        EXPECT_EQ(readAll(inside), unreadable);
        EXPECT_TRUE(files.pathExists(inside));  // what can't be looked at counts as present
        EXPECT_TRUE(files.findFilesByPattern(inside.parent_path(), "*").empty());
        files.createDir(directory.path("closed\\d"));
        EXPECT_TRUE(files.writeStringToFile("text", inside));
        const auto archive = TarBuilder().directory("m").whole();
        Filepath destination = inside.parent_path();
        const std::string told = text(files.extractTarballOfSize(archive.data(), archive.size(), destination));
        EXPECT_TRUE(told.find("\"m\" can't be written: Permission denied") != std::string::npos) << told;
        EXPECT_EQ(raised([&] { files.deleteFile(inside); }), "3: Could not delete file : " + inside.getPathString());
    }
    chmod((directory.native() / "closed").c_str(), 0700);
    EXPECT_EQ(directory.read("closed/file"), "1234");
}

TEST_F(FileFailures, OfTheSystemsOwnMakingAreReadWithoutASize) {
    const Filepath path("/proc/self/maps");
    EXPECT_EQ(files.getFileSize(path), 0U);
    EXPECT_GT(files.readBinaryFileToByteVector(path).size(), 1000U);
    EXPECT_GT(files.readBinaryFileToString(path).size(), 1000U);
}

TEST_F(FileFailures, OnAFullDisk) {
    std::string data(5000, 'x');
    const auto archive = TarBuilder().directory("m").file("m/f", data).whole();
    Filepath destination = directory.path();
    const Room room(1000);
    EXPECT_EQ(text(files.extractTarballOfSize(archive.data(), archive.size(), destination)),
              R"(23: Entry "m/f": "f" can't be written: File too large)");
    EXPECT_EQ(destination.getPathString(), directory.path().getPathString());
    LogProcessorFileSystem log(directory.native().string(), "log", false);
    for (const char* const message : {data.c_str(), "more"}) log.Process({message});
    EXPECT_EQ(directory.read("log").size(), 1000U);  // the rest is lost
    EXPECT_TRUE(files.writeBinaryDataToFile(data.data(), data.size(), directory.path("silent")));
    EXPECT_EQ(files.getFileSize(directory.path("silent")), 1000U);
    std::ofstream stream = files.openFileToWriteBinaryData(directory.path("told"));
    EXPECT_FALSE(files.streamBinaryDataToFile(std::string(100000, 'x').data(), 100000, stream));
    std::ofstream full = files.openFileToWriteBinaryData(Filepath("\\dev\\full"));  // told by the flush alone
    EXPECT_TRUE(files.streamBinaryDataToFile(data.data(), 1, full));
    full.close();
    EXPECT_TRUE(full.fail());
}

TEST_F(FileFailures, ExtractingWhereItCannotBe) {
    directory.write("closed", "1234");
    chmod((directory.native() / "closed").c_str(), 0444);
    files.createDir(directory.path("sealed"));
    chmod((directory.native() / "sealed").c_str(), 0555);
    chmod(directory.native().c_str(), 0777);
    const std::string longName(256, 'n');
    std::string longPath = "d";
    while (longPath.size() < 4096) longPath += "/d";
    const std::string kTooLong = "\"... can't be written: File name too long";
    const std::pair<TarBuilder, std::string> archives[] = {
        {TarBuilder().file("closed", "1"), "\"closed\" can't be written: Permission denied"},
        {TarBuilder().file("sealed/f", "1"), "\"f\" can't be written: Permission denied"},
        {TarBuilder().directory("sealed/d"), "\"d\" can't be written: Permission denied"},
        {TarBuilder().extended("path=" + longName).file("f", "1"), kTooLong},
        {TarBuilder().extended("path=" + longName + "/f").file("f", "1"), kTooLong},
        {TarBuilder().extended("path=" + longPath).file("f", "1"), kTooLong},
        {TarBuilder().extended("path=" + longPath).directory("d"), kTooLong}};
    const PlainUser user;
    for (const auto& [builder, expected] : archives) {
        const auto archive = builder.whole();
        Filepath destination = directory.path();
        const std::string told = text(files.extractTarballOfSize(archive.data(), archive.size(), destination));
        EXPECT_EQ(told.substr(told.size() - std::min(told.size(), expected.size())), expected);
        EXPECT_EQ(destination.getPathString(), directory.path().getPathString());
    }
    EXPECT_EQ(directory.read("closed"), "1234");
}

TEST_F(FileFailures, NamesAndDirectoriesAtTheirLimits) {
    const Filepath longest = directory.path(std::string(255, 'n'));
    const Filepath tooLong = directory.path(std::string(256, 'n'));
    for (const Filepath& path : {longest, tooLong}) EXPECT_TRUE(files.writeStringToFile("text", path));
    EXPECT_EQ(files.getFileSize(longest), 4U);
    EXPECT_EQ(readAll(tooLong), unreadable);
    EXPECT_TRUE(files.pathExists(tooLong));  // the system can't tell
    for (int i = 0; i < 10000; ++i) directory.write(std::to_string(i), "");
    EXPECT_EQ(files.findFilesByPattern(directory.path(), "*").size(), 10003U);
    EXPECT_EQ(files.findFilesByPattern(directory.path(), "9?9?").size(), 100U);
}

}  // namespace
}  // namespace TarnoMirelo
