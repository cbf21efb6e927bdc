#include "support/tar_builder.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/files.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>

namespace TarnoMirelo {
namespace {

using Archive = std::vector<unsigned char>;
enum class Way { Tarball, TarballOfSize };
constexpr Way kBoth[] = {Way::Tarball, Way::TarballOfSize};

// The paths of everything below a directory, in order, with what the files hold.
std::string treeOf(const std::filesystem::path& root) {
    std::map<std::string, std::string> tree;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        std::ifstream file(entry.is_directory() ? "" : entry.path(), std::ios::binary);
        tree[entry.path().lexically_relative(root).generic_string()] = {std::istreambuf_iterator<char>(file), {}};
    }
    std::string text;
    for (const auto& [name, content] : tree) text += name + "=" + content + ";";
    return text;
}

// Extracts into a fresh directory: the status, what is left of the destination's path below it, and the tree.
std::string extract(Way way, Archive archive) {
    const TempDir directory;
    std::filesystem::create_directory(directory.native() / "in");
    Filepath destination = directory.path("in");
    const MireloStatus status = way == Way::Tarball
                                    ? FileUtils().extractTarball(archive.data(), destination)
                                    : FileUtils().extractTarballOfSize(archive.data(), archive.size(), destination);
    using Entries = std::filesystem::directory_iterator;
    EXPECT_EQ(std::distance(Entries(directory.native()), Entries()), 1);  // there is nothing beside "in"
    const std::string after = destination.getPathString();
    return text(status) + after.substr(std::min(after.size(), directory.path().getPathString().size())) + " " +
           treeOf(directory.native() / "in");
}
std::string extract(Way way, const TarBuilder& builder) { return extract(way, builder.whole()); }

TEST(Tar, IsExtractedInBothWays) {
    const std::string full(100, 'n');
    const std::pair<TarBuilder, std::string> cases[] = {
        {TarBuilder(), "1:  "},
        {TarBuilder().file("a", "").file("b", "text"), "1:  a=;b=text;"},
        {TarBuilder().directory("m/").directory("m/n/").file("m/n/f", std::string(1000, 'x')).file("m/g", "y"),
         R"(1: \in\m/ m=;m/g=y;m/n=;m/n/f=)" + std::string(1000, 'x') + ";"},
        {TarBuilder().entry('0', full, "z"), "1:  " + full + "=z;"},
        {TarBuilder().directory("p").entry('0', "f", "z", "p"), R"(1: \in\p p=;p/f=z;)"},
        {TarBuilder().directory("p").entry('0', "f", "z", "p").changed(257, "ustar  "), R"(1: \in\p f=z;p=;)"},
        {TarBuilder().extended("comment=x").extended("path=g", 'g').file("f", "z"), "1:  f=z;"},
        {TarBuilder().file("f", "z").changed(124, "   1 7"), "1:  f=z;"}};
    for (const auto& [builder, expected] : cases) {
        for (const Way way : kBoth) EXPECT_EQ(extract(way, builder), expected);
    }
}

TEST(Tar, OfKnownLengthHonoursMore) {
    const std::string deep = std::string(200, 'l') + "/\xC3\xA9";
    const std::tuple<TarBuilder, std::string, std::string> cases[] = {
        {TarBuilder().extended("path=" + deep.substr(0, 200)).directory("d").extended("path=" + deep).file("f", "z"),
         R"(1: \in\d d=;f=z;)", "1: \\in\\" + deep.substr(0, 200) + " " + deep.substr(0, 200) + "=;" + deep + "=z;"},
        {TarBuilder().extended("path=x").extended("path=y").file("f", "z").file("g", "z"), "1:  f=z;g=z;",
         "1:  g=z;y=z;"},
        {TarBuilder().extended("size=3").file("f", "abcdef"), "1:  f=abcdef;", "1:  f=abc;"},
        {TarBuilder().entry('\0', "old", "z"), "23: \\in ", "1:  old=z;"},
        {TarBuilder().directory("a b").file("a b/f", "z"), R"(1: \in\a b )", R"(1: \in\a b a b=;a b/f=z;)"},
        {TarBuilder().file("no/parent", "z"), "1:  ", "23: \\in "}};
    for (const auto& [builder, tarball, tarballOfSize] : cases) {
        EXPECT_EQ(extract(Way::Tarball, builder), tarball);
        EXPECT_EQ(extract(Way::TarballOfSize, builder), tarballOfSize);
    }
}

TEST(Tar, IsRefusedWhereAnEntryIsNotWhatItShouldBe) {
    const TarBuilder first = TarBuilder().file("first", "z");
    const auto with = [&](char kind, const std::string& name) { return TarBuilder(first).entry(kind, name); };
    const auto sized = [&](char kind, const std::string& field) { return with(kind, "f").changed(124, field); };
    std::vector<TarBuilder> refused = {with('2', "link"), with('L', "long"), sized('0', std::string(12, ' ')),
                                       sized('x', "77777777777"), sized('0', "\x80" + std::string(11, '\0'))};
    for (const char* const name : {"..", "../f", "a/../../f", R"(a\..\f)", "/f", "\\f", "C:f", "f:stream", "a/.."}) {
        for (const char kind : {'0', '5'}) refused.push_back(with(kind, name));
    }
    for (const TarBuilder& builder : refused) {
        for (const Way way : kBoth) EXPECT_EQ(extract(way, builder), "23: \\in first=z;");
    }
    // Success means that all of it is there, so a file that is in a directory's place is a failure.
    EXPECT_EQ(extract(Way::TarballOfSize, with('5', "first")), "23: \\in first=z;");
    for (const char* const record :
         {"path=../f", "path=/f", "path=", "size=4294967296", "size=x", "size=-1", "nothing"}) {
        const TarBuilder builder = TarBuilder(first).extended(record).file("f", "z");
        EXPECT_EQ(extract(Way::TarballOfSize, builder), "23: \\in first=z;") << record;
    }
    for (const char* const data : {"9 path=f", "4 a=\n", "99 a=b\n", " a=b\n", "6 a=b\n x"}) {
        EXPECT_EQ(extract(Way::TarballOfSize, TarBuilder(first).entry('x', "e", data)), "23: \\in first=z;") << data;
    }
    for (const Way way : kBoth) {
        EXPECT_EQ(extract(way, with('g', "../g")), "1:  first=z;");  // skipped headers are not judged
        // A system that drops dots and spaces at the end of a name takes none of these for the parent.
        for (const char* const name : {".. /f", ".../f", "... /f", "a/.. /../f", ".. "}) extract(way, with('0', name));
        EXPECT_EQ(extract(way, with('5', "no/parent")).rfind("3: Path incorrect : ", 0), 0U);
    }
}

TEST(Tar, HasItsHeadersAddUp) {
    for (size_t i = 0; i < 512; ++i) {
        Archive damaged = TarBuilder().file("f", "z").whole();
        damaged[i] = static_cast<unsigned char>(damaged[i] + 1);
        const bool ignored = i == 154 || i == 155;  // what follows the six digits
        for (const Way way : kBoth) EXPECT_EQ(extract(way, damaged), ignored ? "1:  f=z;" : "21: \\in ") << i;
    }
}

// Cut a good archive at every byte: each piece is refused, and none is read past its end.
TEST(Tar, IsRefusedWhenItEndsEarly) {
    const Archive whole = TarBuilder().directory("m/").extended("path=m/net.onnx").file("m/cut", "weights").whole();
    const TempDir directory;
    Filepath destination = directory.path();
    for (size_t size = 0; size < whole.size(); ++size) {
        const Archive piece(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));  // its own block of memory
        EXPECT_EQ(text(FileUtils().extractTarballOfSize(piece.data(), size, destination)), "23: ") << size;
    }
    EXPECT_EQ(text(FileUtils().extractTarballOfSize(nullptr, 9, destination)), "23: ");
    EXPECT_EQ(destination.getPathString(), directory.path().getPathString());
}

TEST(Tar, GoesThroughTheOverridesOfTheObject) {
    class Recording : public FileUtils {
     public:
        std::string calls;
        bool succeeds = true;
        bool pathExists(const Filepath& path) override { return note("exists", path); }
        void createDir(const Filepath& path) override { note("create", path); }
        bool writeBinaryDataToFile(void* /*data*/, uint64_t size, const Filepath& path) override {
            note("write" + std::to_string(size), path);
            return size == 9 ? throw 9 : succeeds;
        }
        bool note(const std::string& call, const Filepath& path) {
            return (calls += call + " " + path.c_str() + ";").empty();
        }
    };
    Recording files;
    Archive archive = TarBuilder().directory("m").file("m/f", "1234").directory("a b").whole();
    Filepath destination;
    EXPECT_EQ(text(files.extractTarball(archive.data(), destination)), kSuccess);
    EXPECT_EQ(files.calls, "exists m;create m;write4 m/f;exists a b;");
    files.succeeds = false;
    EXPECT_EQ(text(files.extractTarball(archive.data(), destination)), "23: ");
    archive = TarBuilder().file("f", "123456789").whole();
    EXPECT_EQ(text(files.extractTarball(archive.data(), destination)), "2: unknown error occured");
    EXPECT_EQ(destination.getPathString(), "m");
    files = {};
    archive = TarBuilder().file("machine/share/f", "1").whole();
    constexpr bool kIsWindows = std::filesystem::path::preferred_separator == '\\';
    for (const char* const root : {"\\", "/"}) {  // with a separator more, Windows would go to that machine
        destination = Filepath(root);
        EXPECT_EQ(text(files.extractTarball(archive.data(), destination)), kIsWindows ? "23: " : kSuccess);
        EXPECT_EQ(files.calls.empty(), kIsWindows);
    }
}

// What the tools of packagers write, names included that the ustar layout has no room for.
TEST(Tar, WrittenByOtherToolsIsExtractedWhole) {
#if defined(_WIN32)
    GTEST_SKIP() << "Those tools are none of Windows'";
#endif
    const TempDir work;
    const std::filesystem::path source = work.native() / "source";
    const auto check = [&](std::string command) {
        const std::string archive = (work.native() / "archive.tar").string();
        command.replace(command.find('@'), 1, "'" + archive + "'");
        ASSERT_EQ(std::system(("cd '" + source.string() + "' && " + command + " model").c_str()), 0) << command;
        const Archive bytes = FileUtils().readBinaryFileToByteVector(Filepath(archive));
        EXPECT_EQ(extract(Way::TarballOfSize, bytes), "1: \\in\\model/ " + treeOf(source)) << command;
    };
    std::filesystem::create_directories(source / "model" / "a b" / std::string(90, 'n'));
    std::ofstream(source / "model" / "a b" / std::string(90, 'n') / std::string(90, 'm')) << std::string(3000, 'x');
    std::ofstream(source / "model" / "empty");
    for (const std::string format : {"ustar", "pax"}) {
        check("tar --format=" + format + " -cf @");
        check("bsdtar --format=" + format + " -cf @");
        check(format == "pax" ? "cmake -E tar cf @ --format=pax" : "cmake -E tar cf @ --format=paxr");
        std::filesystem::create_directory(source / "model" / "\xE2\x82\xAC \xF0\x9F\x98\x80");
        std::ofstream(source / "model" / std::string(200, 'l')) << "long";
    }
}

}  // namespace
}  // namespace TarnoMirelo
