#include "support/tar_builder.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/files.h>
#include <TarnoMirelo/logging.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <stdexcept>
#if defined(_WIN32)
#include <windows.h>
#endif

namespace TarnoMirelo {
namespace {

TEST(Filepath, JoinsWithOneBackslashAndCollapsesNothing) {
    const auto join = [](const std::string& path, const std::string& other) {
        return Filepath(path).append(Filepath(other)).getPathString();
    };
    EXPECT_EQ(join("", "m.json"), "m.json");
    EXPECT_EQ(join(R"(C:\models\)", "m1"), R"(C:\models\\m1)");
    EXPECT_EQ(join("a/b", "\\c") + join("a", "") + join("", ""), R"(a/b\\ca\)");
    EXPECT_EQ(join("a", std::string("b\0c", 3)), "a\\b");
    Filepath self("a");
    EXPECT_EQ(self.append(self).getPathString(), "a\\a");
}

TEST(Filepath, ParentIsWhatStandsBeforeTheLastBackslash) {
    const std::pair<const char*, const char*> cases[] = {
        {R"(C:\models\m1\m.json)", R"(C:\models\m1)"}, {R"(C:\m1\)", R"(C:\m1)"}, {"\\", ""}, {"", ""}, {"a/b", "a/b"}};
    for (const auto& [path, parent] : cases) EXPECT_EQ(Filepath(path).parent_path().getPathString(), parent);
    EXPECT_STREQ(Filepath().c_str(), "");
}

// The constant must be there before other static objects are made.
const std::string kSeparatorAtStart = Filepath::Separator;  // NOLINT(cert-err58-cpp)
TEST(Filepath, SeparatorIsThereFromTheStart) { EXPECT_EQ(kSeparatorAtStart, "\\"); }

class FilesTest : public testing::Test {
 protected:
    const TempDir directory;
    FileUtils files;
};

TEST_F(FilesTest, ReadsWholeFiles) {
    for (const std::string& content : {std::string(), std::string("ab\0cd\r\n", 7), std::string(100'000, 'x')}) {
        const Filepath path = directory.write("file", content);
        uint64_t size = 99;
        const std::unique_ptr<char[]> buffer = files.readBinaryFileToBuffer(path, size);
        EXPECT_EQ(std::string(buffer.get(), size), content);
        const std::vector<char> chars = files.readBinaryFileToVector(path);
        EXPECT_EQ(std::string(chars.begin(), chars.end()), content);
        const std::vector<unsigned char> bytes = files.readBinaryFileToByteVector(path);
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), content);
        std::string allocated(files.getFileSize(path), '?');
        files.readBinaryFileToAllocated(path, size = 99, allocated.data());
        EXPECT_EQ(allocated, content);
        EXPECT_EQ(size, content.size());
        EXPECT_EQ(files.readBinaryFileToString(path), content.c_str());  // up to the first NUL
    }
}

TEST_F(FilesTest, TellsFourWaysThatAFileCannotBeRead) {
    directory.write("file", "content");
#if defined(_WIN32)
    const Filepath device("NUL");
#else
    const Filepath device("/dev/null");
#endif
    for (const Filepath& path : {directory.path("missing"), directory.path(), directory.path("file\\below"), device}) {
        uint64_t size = 99;
        EXPECT_EQ(files.readBinaryFileToBuffer(path, size), nullptr);
        EXPECT_TRUE(files.readBinaryFileToVector(path).empty() && files.readBinaryFileToByteVector(path).empty());
        EXPECT_EQ(raised([&] { files.getFileSize(path); }), "3: File error!");
        EXPECT_EQ(raised([&] { files.readBinaryFileToAllocated(path, size, nullptr); }), "3: File error!");
        EXPECT_EQ(size, 99U);
        EXPECT_EQ(raised([&] { files.readBinaryFileToString(path); }), "2: Failed to open file");
        EXPECT_THROW(files.readBinaryFileToString(path), std::runtime_error);
    }
#if defined(_WIN32)
    const char* const name = R"(\\.\pipe\sdk-core-tests)";
    const HANDLE pipe = ::CreateNamedPipeA(name, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 64, 64, 0, nullptr);
    EXPECT_FALSE(files.openFileToWriteBinaryData(Filepath(name)).is_open());
    ::CloseHandle(pipe);
#endif
}

TEST_F(FilesTest, WritesAppendsAndTranslates) {
#if defined(_WIN32)
    _fmode = _O_BINARY;  // a host's wish for its own files, which is nothing to the library
#endif
    std::string bytes("1\n2\0", 4);
    const Filepath path = directory.path("file");
    EXPECT_TRUE(files.writeBinaryDataToFile(bytes.data(), 4, path));
    EXPECT_EQ(directory.read("file"), bytes);
    EXPECT_TRUE(files.writeBinaryDataToFile(bytes.data(), 1, path));
    std::ofstream stream = files.openFileToStreamBinaryData(path);
    EXPECT_TRUE(files.streamBinaryDataToFile(bytes.data(), 2, stream));
    stream.close();
    EXPECT_FALSE(files.streamBinaryDataToFile(bytes.data(), 2, stream));
    EXPECT_EQ(directory.read("file"), "11\n");
    EXPECT_TRUE(files.writeStringToFile(std::string("a\nb\r\n\0c", 7), path));
    EXPECT_EQ(directory.read("file"), "a\r\nb\r\r\n");
    // A directory that isn't there: the streams say so, the whole-file writes do not.
    const Filepath nowhere = directory.path("missing\\file");
    EXPECT_FALSE(files.openFileToWriteBinaryData(nowhere).is_open() ||
                 files.openFileToStreamBinaryData(nowhere).is_open());
    EXPECT_TRUE(files.writeBinaryDataToFile(bytes.data(), 1, nowhere) && files.writeStringToFile("text", nowhere));
}

TEST_F(FilesTest, CreatesOneDirectoryAndDeletesFilesOnly) {
    const Filepath child = directory.path("parent\\child");
    const Filepath file = directory.write("file", "content");
    for (const Filepath& path : {child, directory.path("file\\below")}) {
        EXPECT_EQ(raised([&] { files.createDir(path); }), "3: Path incorrect : " + path.getPathString());
        EXPECT_FALSE(files.pathExists(path) || files.pathExists(directory.path("parent")));
    }
    for (const Filepath& path : {child.parent_path(), child, child, file}) files.createDir(path);
    EXPECT_TRUE(files.pathExists(child));
    EXPECT_EQ(directory.read("file"), "content");
    files.deleteDir(child);
    files.deleteFile(file);
    EXPECT_FALSE(files.pathExists(file));
    for (const Filepath& path : {child, file}) {
        EXPECT_EQ(raised([&] { files.deleteFile(path); }), "3: Could not delete file : " + path.getPathString());
    }
    EXPECT_TRUE(files.pathExists(child));
}

TEST_F(FilesTest, WideOperationsTakeNothingButUtf8) {
    // A lone continuation, a cut sequence, overlong forms, a surrogate, a value beyond the last character, Latin-1.
    for (const char* const name :
         {"\x80", "\xE2\x82", "\xC0\xAF", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE9"}) {
        const Filepath path = directory.path(name);
        uint64_t size = 0;
        const std::function<void()> wide[] = {[&] { files.createDir(path); },
                                              [&] { files.pathExists(path); },
                                              [&] { files.openFileToStreamBinaryData(path); },
                                              [&] { files.openFileToWriteBinaryData(path); },
                                              [&] { files.writeStringToFile("", path); },
                                              [&] { files.writeBinaryDataToFile(nullptr, 0, path); },
                                              [&] { files.readBinaryFileToBuffer(path, size); },
                                              [&] { files.readBinaryFileToVector(path); },
                                              [&] { files.readBinaryFileToByteVector(path); },
                                              [&] { files.getFileSize(path); },
                                              [&] { files.readBinaryFileToAllocated(path, size, nullptr); },
                                              [&] { files.findFilesByPattern(path, "*"); }};
        for (const auto& operation : wide) EXPECT_EQ(raised(operation), "2: bad conversion");
        EXPECT_THROW(files.pathExists(path), std::range_error);
        EXPECT_EQ(raised([&] { files.deleteFile(path); }), "3: Could not delete file : " + path.getPathString());
        EXPECT_EQ(raised([&] { files.readBinaryFileToString(path); }), "2: Failed to open file");
    }
    directory.write("\xE2\x82\xAC \xF0\x9F\x98\x80", "content");
    const std::string name = files.findFilesByPattern(directory.path(), "\xE2\x82\xAC*").at(0).getPathString();
    const Filepath found = directory.path(name + std::string("\0\x80", 2));  // up to the first NUL
    EXPECT_EQ(list(files.pathExists(found), files.getFileSize(found), files.readBinaryFileToVector(found).size()),
              "1 7 7");
    files.writeStringToFile("\n", found);
    EXPECT_EQ(files.readBinaryFileToVector(found), (std::vector<char>{'\r', '\n'}));
}

TEST_F(FilesTest, LeaveNothingOpen) {
    const Filepath file = directory.write("file", "content");
    const Filepath paths[] = {file, directory.path(), directory.path("missing"), directory.path("\x80"), Filepath()};
    const auto archive = TarBuilder().file("d/e/f", "z").directory("d/g").file("d/e/f/g", "").whole();
    const auto useAll = [&] {
        Filepath destination = directory.path();
        EXPECT_FALSE(files.extractTarballOfSize(archive.data(), archive.size(), destination).ok());
        for (const Filepath& path : paths) {
            uint64_t size = 0;
            char buffer[8];
            raised([&] { files.pathExists(path); });
            raised([&] { files.openFileToStreamBinaryData(path); });
            raised([&] { files.readBinaryFileToBuffer(path, size); });
            raised([&] { files.readBinaryFileToVector(path); });
            raised([&] { files.readBinaryFileToByteVector(path); });
            raised([&] { files.readBinaryFileToString(path); });
            raised([&] { files.getFileSize(path); });
            raised([&] { files.readBinaryFileToAllocated(path, size, buffer); });
            raised([&] { files.findFilesByPattern(path, "*"); });
            raised([&] { files.writeStringToFile("content", path); });
            raised([&] { files.writeBinaryDataToFile(buffer, 7, path); });
            raised([&] { files.createDir(path); });
        }
    };
    useAll();
#if defined(_WIN32)
    EXPECT_TRUE(std::filesystem::remove(directory.native() / "file"));  // refused while the file is open
#else
    using Descriptors = std::filesystem::directory_iterator;
    const auto before = std::distance(Descriptors("/proc/self/fd"), Descriptors());
    useAll();
    EXPECT_EQ(std::distance(Descriptors("/proc/self/fd"), Descriptors()), before);
#endif
}

// A child that outlives a file's use would keep it open: on Windows nobody could delete it, elsewhere its space stays.
TEST_F(FilesTest, StayClosedInChildren) {
    const std::filesystem::path shown = directory.native() / "shown";
    std::ofstream streams[] = {files.openFileToWriteBinaryData(directory.path("mine1")),
                               files.openFileToStreamBinaryData(directory.path("mine2"))};
    directory.write("mine3", "before");
    LogProcessorFileSystem logs[] = {{directory.native().string(), "mine3", false},
                                     {directory.native().string(), "mine4", false}};
#if defined(_WIN32)
    std::FILE* const child = ::_popen("cmd /c set /p line=", "w");  // waits for a line
    for (std::ofstream& stream : streams) stream.close();
    for (LogProcessorFileSystem& log : logs) log.Close();
    for (const char* const name : {"mine1", "mine2", "mine3", "mine4"}) {
        std::error_code error;
        EXPECT_TRUE(std::filesystem::remove(directory.native() / name, error)) << name << error.message();
    }
    ::_pclose(child);
#else
    ASSERT_EQ(std::system(("ls -l /proc/self/fd >'" + shown.string() + "'").c_str()), 0);
    EXPECT_NE(directory.read("shown").find("shown"), std::string::npos);
    EXPECT_EQ(directory.read("shown").find("mine"), std::string::npos) << directory.read("shown");
    for (std::ofstream& stream : streams) EXPECT_TRUE(stream.is_open());
    for (LogProcessorFileSystem& log : logs) log.Process({"written"});
    EXPECT_GT(directory.read("mine3").size(), directory.read("mine4").size());
#endif
}

TEST_F(FilesTest, FindsNamesByPattern) {
    for (const char* const name : {"a.bin", "B.BIN", "ab.bin", "c.txt", "\xC3\x89", "\xF0\x9F\x98\x80y.bin"})
        directory.write(name, "");
    files.createDir(directory.path("d"));
    directory.write("d/inner.bin", "");
    const std::pair<std::string, std::string> cases[] = {
        {"*.bin", "B.BIN a.bin ab.bin \xF0\x9F\x98\x80y.bin "},
        {"?.bin", "B.BIN a.bin "},
        {"a*B*n", "a.bin ab.bin "},
        {"*a*b*i*x", ""},
        {"C.TXT", "c.txt "},
        {"\xC3\xA9", "\xC3\x89 "},
        {"d\\*", ". .. inner.bin "},
        {"", ""},
        {"missing\\*", ""},
        {"a.bin\\*", ""},
        {"*", ". .. B.BIN a.bin ab.bin c.txt d \xC3\x89 \xF0\x9F\x98\x80y.bin "}};
    for (const auto& [pattern, expected] : cases) {
        std::vector<Filepath> found = files.findFilesByPattern(directory.path(), pattern);
        std::sort(found.begin(), found.end(), [](auto& a, auto& b) { return a.getPathString() < b.getPathString(); });
        std::string names;
        for (const Filepath& name : found) names += name.getPathString() + " ";
        EXPECT_EQ(names, expected) << pattern;
        for (const Filepath& name : found)
            EXPECT_TRUE(files.pathExists(directory.path(pattern).parent_path().append(name)));
    }
}

// A file system of the host's own is honoured by the operations that are built on others.
TEST_F(FilesTest, CallsItsOwnOverrides) {
    class Redirected : public FileUtils {
     public:
        bool pathExists(const Filepath& /*path*/) override { return exists; }
        std::ofstream openFileToWriteBinaryData(const Filepath& /*path*/) override {
            return FileUtils::openFileToWriteBinaryData(target);
        }
        bool exists = true;
        Filepath target;
    } redirected;
    redirected.createDir(directory.path("a"));
    EXPECT_FALSE(files.pathExists(directory.path("a")));
    redirected.exists = false;
    for (int times = 0; times < 2; ++times) redirected.createDir(directory.path("a"));  // the second fails silently
    EXPECT_TRUE(files.pathExists(directory.path("a")));
    redirected.target = directory.path("elsewhere");
    char byte = 'x';
    redirected.writeBinaryDataToFile(&byte, 1, directory.path("file"));
    EXPECT_EQ(directory.read("elsewhere"), "x");
}

}  // namespace
}  // namespace TarnoMirelo
