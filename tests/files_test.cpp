#include "support/status_text.h"
#include "support/temp_dir.h"

#include <TarnoMirelo/files.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>

namespace TarnoMirelo {
namespace {

TEST(Filepath, JoinsWithOneBackslashAndCollapsesNothing) {
    const std::string cases[][3] = {{"", "m.json", "m.json"},
                                    {"", "", ""},
                                    {"C:\\models", "m1", "C:\\models\\m1"},
                                    {"C:\\models\\", "m1", "C:\\models\\\\m1"},
                                    {"a", "\\b", "a\\\\b"},
                                    {"a", "", "a\\"},
                                    {"a/b", "c", "a/b\\c"},
                                    {"a", std::string("b\0c", 3), "a\\b"}};
    for (const auto& [path, other, joined] : cases) {
        Filepath result(path);
        EXPECT_EQ(&result.append(Filepath(other)), &result);
        EXPECT_EQ(result.getPathString(), joined);
    }
    Filepath self("a");
    EXPECT_EQ(self.append(self).getPathString(), "a\\a");
}

TEST(Filepath, ParentIsWhatStandsBeforeTheLastBackslash) {
    const std::pair<const char*, const char*> cases[] = {{"C:\\models\\m1\\m.json", "C:\\models\\m1"},
                                                         {"C:\\models\\m1\\", "C:\\models\\m1"},
                                                         {"C:\\", "C:"},
                                                         {"\\", ""},
                                                         {"m.json", "m.json"},
                                                         {"", ""},
                                                         {"models/m1/m.json", "models/m1/m.json"}};
    for (const auto& [path, parent] : cases)
        EXPECT_EQ(Filepath(path).parent_path().getPathString(), parent);
    EXPECT_STREQ(Filepath().c_str(), "");
}

// The constant must be there before other static objects are made.
const std::string kSeparatorAtStart = Filepath::Separator;

TEST(Filepath, SeparatorIsThereFromTheStart) {
    EXPECT_EQ(kSeparatorAtStart, "\\");
}

// All the ways in which a file of every awkward size comes back, and how a missing one is told.
TEST(FileUtils, ReadsWholeFiles) {
    FileUtils files;
    const TempDir directory;
    for (const std::string& content : {std::string(), std::string("ab\0cd\r\n", 7), std::string(100'000, 'x')}) {
        const Filepath path = directory.write("file", content);
        const auto size = static_cast<uint64_t>(content.size());
        uint64_t read = 99;
        const std::unique_ptr<char[]> buffer = files.readBinaryFileToBuffer(path, read);
        ASSERT_NE(buffer, nullptr);
        EXPECT_EQ(std::string(buffer.get(), read), content);
        const std::vector<char> chars = files.readBinaryFileToVector(path);
        EXPECT_EQ(std::string(chars.begin(), chars.end()), content);
        const std::vector<unsigned char> bytes = files.readBinaryFileToByteVector(path);
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), content);
        EXPECT_EQ(files.getFileSize(path), size);
        std::string allocated(size, '?');
        files.readBinaryFileToAllocated(path, read, allocated.data());
        EXPECT_EQ(read, size);
        EXPECT_EQ(allocated, content);
        EXPECT_EQ(files.readBinaryFileToString(path), content.c_str());  // up to the first NUL
    }
}

TEST(FileUtils, TellsFourWaysThatAFileCannotBeRead) {
    FileUtils files;
    const TempDir directory;
    for (const Filepath& path : {directory.path("missing"), directory.path(), directory.path("missing\\file")}) {
        SCOPED_TRACE(path.getPathString());
        uint64_t size = 99;
        EXPECT_EQ(files.readBinaryFileToBuffer(path, size), nullptr);
        EXPECT_TRUE(files.readBinaryFileToVector(path).empty());
        EXPECT_TRUE(files.readBinaryFileToByteVector(path).empty());
        EXPECT_EQ(raised([&] { files.getFileSize(path); }), "3: File error!");
        EXPECT_EQ(raised([&] { files.readBinaryFileToAllocated(path, size, nullptr); }), "3: File error!");
        EXPECT_EQ(size, 99U);
        EXPECT_EQ(raised([&] { files.readBinaryFileToString(path); }), "2: Failed to open file");
        EXPECT_THROW(files.readBinaryFileToString(path), std::runtime_error);
    }
}

TEST(FileUtils, WritesAppendsAndTranslates) {
    FileUtils files;
    const TempDir directory;
    std::string bytes("1\n2\0", 4);
    EXPECT_TRUE(files.writeBinaryDataToFile(bytes.data(), bytes.size(), directory.path("binary")));
    EXPECT_EQ(directory.read("binary"), bytes);
    EXPECT_TRUE(files.writeBinaryDataToFile(bytes.data(), 1, directory.path("binary")));
    EXPECT_EQ(directory.read("binary"), "1");

    std::ofstream stream = files.openFileToStreamBinaryData(directory.path("binary"));
    EXPECT_TRUE(files.streamBinaryDataToFile(bytes.data(), 2, stream));
    stream.close();
    EXPECT_EQ(directory.read("binary"), "11\n");
    EXPECT_FALSE(files.streamBinaryDataToFile(bytes.data(), 2, stream));

    EXPECT_TRUE(files.writeStringToFile(std::string("a\nb\r\n\0c", 7), directory.path("text")));
    EXPECT_EQ(directory.read("text"), "a\r\nb\r\r\n");

    // A directory that isn't there: the streams say so, the whole-file writes do not.
    const Filepath nowhere = directory.path("missing\\file");
    EXPECT_FALSE(files.openFileToWriteBinaryData(nowhere).is_open());
    EXPECT_FALSE(files.openFileToStreamBinaryData(nowhere).is_open());
    EXPECT_TRUE(files.writeBinaryDataToFile(bytes.data(), 1, nowhere));
    EXPECT_TRUE(files.writeStringToFile("text", nowhere));
}

TEST(FileUtils, CreatesOneDirectoryAndDeletesFilesOnly) {
    FileUtils files;
    const TempDir directory;
    const Filepath parent = directory.path("parent");
    const Filepath child = directory.path("parent\\child");
    EXPECT_EQ(raised([&] { files.createDir(child); }), "3: Path incorrect : " + child.getPathString());
    EXPECT_FALSE(files.pathExists(parent));
    files.createDir(parent);
    files.createDir(child);
    files.createDir(child);  // is there already
    EXPECT_TRUE(files.pathExists(child));
    const Filepath file = directory.write("file", "content");
    files.createDir(file);
    EXPECT_EQ(directory.read("file"), "content");
    EXPECT_FALSE(files.pathExists(directory.path("file\\below")));
    EXPECT_EQ(raised([&] { files.createDir(directory.path("file\\below")); }),
              "3: Path incorrect : " + directory.path("file\\below").getPathString());

    files.deleteDir(child);
    EXPECT_TRUE(files.pathExists(child));
    EXPECT_EQ(raised([&] { files.deleteFile(child); }), "3: Could not delete file : " + child.getPathString());
    EXPECT_TRUE(files.pathExists(child));
    files.deleteFile(file);
    EXPECT_FALSE(files.pathExists(file));
    EXPECT_EQ(raised([&] { files.deleteFile(file); }), "3: Could not delete file : " + file.getPathString());
}

TEST(FileUtils, WideOperationsTakeNothingButUtf8) {
    FileUtils files;
    const TempDir directory;
    const std::pair<const char*, std::string> malformed[] = {
        {"lone continuation", "\x80"},  {"cut sequence", "\xE2\x82"},
        {"overlong slash", "\xC0\xAF"}, {"overlong NUL", "\xE0\x80\x80"},
        {"surrogate", "\xED\xA0\x80"},  {"beyond the last character", "\xF4\x90\x80\x80"},
        {"Latin-1", "caf\xE9"}};
    for (const auto& [what, name] : malformed) {
        SCOPED_TRACE(what);
        const Filepath path = directory.path(name);
        uint64_t size = 0;
        const std::function<void()> wide[] = {[&] { files.createDir(path); },
                                              [&] { files.pathExists(path); },
                                              [&] { files.openFileToStreamBinaryData(path); },
                                              [&] { files.openFileToWriteBinaryData(path); },
                                              [&] { files.writeBinaryDataToFile(&size, 1, path); },
                                              [&] { files.writeStringToFile("", path); },
                                              [&] { files.readBinaryFileToBuffer(path, size); },
                                              [&] { files.readBinaryFileToVector(path); },
                                              [&] { files.readBinaryFileToByteVector(path); },
                                              [&] { files.getFileSize(path); },
                                              [&] { files.readBinaryFileToAllocated(path, size, nullptr); },
                                              [&] { files.findFilesByPattern(path, "*"); }};
        for (const auto& operation : wide) {
            EXPECT_THROW(operation(), std::range_error);
            EXPECT_EQ(raised(operation), "2: bad conversion");
        }
        EXPECT_EQ(raised([&] { files.deleteFile(path); }), "3: Could not delete file : " + path.getPathString());
        EXPECT_EQ(raised([&] { files.readBinaryFileToString(path); }), "2: Failed to open file");
    }
    const Filepath euro = directory.write("\xE2\x82\xAC \xF0\x9F\x98\x80", "content");
    EXPECT_EQ(files.getFileSize(euro), 7U);
    EXPECT_EQ(files.getFileSize(Filepath(euro.getPathString() + std::string("\0\x80", 2))), 7U);
}

TEST(FileUtils, FindsNamesByPattern) {
    FileUtils files;
    const TempDir directory;
    for (const char* const name : {"a.bin", "B.BIN", "ab.bin", "c.txt", "\xC3\x89t\xC3\xA9", "\xF0\x9F\x98\x80.bin"}) {
        directory.write(name, "");
    }
    const std::string smile = "\xF0\x9F\x98\x80.bin";
    const std::string summer = "\xC3\x89t\xC3\xA9";
    files.createDir(directory.path("d"));
    directory.write("d/inner.bin", "");
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"*.bin", {"B.BIN", "a.bin", "ab.bin", smile}},
        {"?.bin", {"B.BIN", "a.bin", smile}},
        {"A*", {"a.bin", "ab.bin"}},
        {"a*b*n", {"a.bin", "ab.bin"}},
        {"*a*b*i*x", {}},
        {"c.txt", {"c.txt"}},
        {"\xC3\xA9?\xC3\x89", {summer}},
        {"d\\*.bin", {"inner.bin"}},
        {"nothing*", {}},
        {"", {}},
        {"*", {".", "..", "B.BIN", "a.bin", "ab.bin", "c.txt", "d", summer, smile}}};
    for (const auto& [pattern, expected] : cases) {
        std::vector<std::string> found;
        for (const Filepath& name : files.findFilesByPattern(directory.path(), pattern)) {
            found.push_back(name.getPathString());
            if (pattern[0] != 'd') {
                EXPECT_TRUE(files.pathExists(directory.path(name.getPathString())));
            }
        }
        std::sort(found.begin(), found.end());
        EXPECT_EQ(found, expected) << pattern;
    }
    EXPECT_TRUE(files.findFilesByPattern(directory.path("missing"), "*").empty());
    EXPECT_TRUE(files.findFilesByPattern(directory.path("a.bin"), "*").empty());
}

// A file system of the host's own is honoured by the operations that are built on others.
TEST(FileUtils, CallsItsOwnOverrides) {
    class Redirected : public FileUtils {
     public:
        bool pathExists(const Filepath& /*path*/) override { return exists; }
        std::ofstream openFileToWriteBinaryData(const Filepath& /*path*/) override {
            return FileUtils::openFileToWriteBinaryData(target);
        }
        bool exists = true;
        Filepath target;
    };
    const TempDir directory;
    Redirected files;
    files.createDir(directory.path("a"));
    EXPECT_FALSE(FileUtils().pathExists(directory.path("a")));
    files.exists = false;
    files.createDir(directory.path("a"));
    files.createDir(directory.path("a"));  // fails now, silently
    EXPECT_TRUE(FileUtils().pathExists(directory.path("a")));
    files.target = directory.path("elsewhere");
    char byte = 'x';
    files.writeBinaryDataToFile(&byte, 1, directory.path("file"));
    EXPECT_EQ(directory.read("elsewhere"), "x");
}

}  // namespace
}  // namespace TarnoMirelo
