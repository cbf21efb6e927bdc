#include "support/tar_builder.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/files.h>

#include <gtest/gtest.h>

#include <map>
#if !defined(_WIN32)
#include <sys/stat.h>
#endif

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
        {TarBuilder().directory("./").directory("./p").file("./p//.\\f", "z"), R"(1: \in\./ p=;p/f=z;)"},
        {TarBuilder().extended("comment=x").extended("comment=g", 'g').file("f", "z"), "1:  f=z;"},
        {TarBuilder().file("f", "long").file("f", "z"), "1:  f=z;"},
        {TarBuilder().file("f", "z").changed(124, "   1 7"), "1:  f=z;"}};
    for (const auto& [builder, expected] : cases) {
        for (const Way way : kBoth) EXPECT_EQ(extract(way, builder), expected);
    }
}

TEST(Tar, OfKnownLengthHonoursMore) {
    const std::string deep = std::string(200, 'l') + "/\xC3\xA9";
    const std::string top = deep.substr(0, 200);
    const auto longName = [](const std::string& name) { return TarBuilder().entry('L', "././@LongLink", name + '\0'); };
    const auto spelt = [](const char* format, const std::string& tail = "") {
        return TarBuilder().file("f", "z").checksum(format, tail);
    };
    const std::tuple<TarBuilder, std::string, std::string> cases[] = {
        {TarBuilder().extended("path=" + top).directory("d").extended("path=" + deep).file("f", "z"),
         R"(1: \in\d d=;f=z;)", "1: \\in\\" + top + " " + top + "=;" + deep + "=z;"},
        {TarBuilder().extended("path=x").extended("path=y").file("f", "z").file("g", "z"), "1:  f=z;g=z;",
         "1:  g=z;y=z;"},
        {TarBuilder().extended("size=3").file("f", "abcdef"), "1:  f=abcdef;", "1:  f=abc;"},
        // A packer that leaves what is not ASCII out of the name field may leave nothing of it.
        {TarBuilder().extended("path=\xC3\xA9").file("", "z"), "1:  ", "1:  \xC3\xA9=z;"},
        {longName(deep).file(deep.substr(0, 100), "z").file("g", ""), "23: \\in ",
         "1:  g=;" + top + "=;" + deep + "=z;"},
        {longName(deep + "/").directory("d"), "23: \\in ", R"(1: \in\)" + deep + "/ " + top + "=;" + deep + "=;"},
        {TarBuilder().entry('\0', "old", "z").entry('\0', "d/"), "23: \\in ", "1: \\in\\d/ d=;old=z;"},
        {TarBuilder().directory("a b").file("a b/f", "z"), R"(1: \in\a b )", R"(1: \in\a b a b=;a b/f=z;)"},
        {TarBuilder().file("no/parent/f", "z").file("no/g", "y").file("no/parent/h", "x"),
         "1:  ", "1:  no=;no/g=y;no/parent=;no/parent/f=z;no/parent/h=x;"},
        {spelt("%07lo"), "21: \\in ", "1:  f=z;"},
        {spelt("%8lo"), "21: \\in ", "1:  f=z;"},
        {spelt("%lo", std::string(4, '\0')), "21: \\in ", "1:  f=z;"}};
    for (const auto& [builder, tarball, tarballOfSize] : cases) {
        EXPECT_EQ(extract(Way::Tarball, builder), tarball);
        EXPECT_EQ(extract(Way::TarballOfSize, builder), tarballOfSize);
    }
}

// Each refusal ends the extraction, leaves what was there before, and says what it is about.
TEST(Tar, IsRefusedWhereAnEntryIsNotWhatItShouldBe) {
    const TarBuilder first = TarBuilder().file("first", "z");
    const auto with = [&](char kind, const std::string& name) { return TarBuilder(first).entry(kind, name); };
    const auto sized = [&](char kind, const std::string& field) { return with(kind, "f").changed(124, field); };
    const auto after = [&](const std::string& record) { return TarBuilder(first).extended(record).file("f", "z"); };
    const auto records = [&](const std::string& data) { return TarBuilder(first).entry('x', "e", data); };
    const char* const kSize = R"("f": its size is not given in octal digits, or is 4 GiB or more)";
    const char* const kAbsolute = "the name is absolute";
    const char* const kParent = "the name has a component \"..\"";
    const char* const kColon = "the name holds a \":\"";
    const std::string kKinds = ", wanted are files and directories";
    std::vector<std::tuple<TarBuilder, bool, std::string>> cases = {
        {with('1', "a"), true, R"("a": it is a hard link)" + kKinds},
        {with('2', "a\"\n\\"), true, R"("a\"\x0A\\": it is a symbolic link)" + kKinds},
        {with('S', "a"), true, R"("a": it is a sparse file)" + kKinds},
        {with('K', "././@LongLink"), true, R"("././@LongLink": it is the long target of a link)" + kKinds},
        {with('\x1B', "a"), true, R"("a": it is of the unknown kind "\x1B")" + kKinds},
        {sized('0', std::string(12, ' ')), true, kSize},
        {sized('x', "77777777777"), true, kSize},
        {sized('0', "\x80" + std::string(11, '\0')), true, kSize},
        {sized('0', "00000002000"), false, R"("f": its data is cut off: its size is 1024, left are 512 bytes)"},
        {with('0', "d/"), false, R"("d/": it is a file with the name of a directory)"},
        {with('0', "./"), false, R"("./": it is a file with the name of a directory)"},
        {with('0', "."), false, R"(".": it is a file with the name of a directory)"},
        {with('5', "first"), false, R"("first": "first" is a file)"},
        {with('0', "first/f"), false, R"("first/f": "first" is a file)"},
        {TarBuilder(first).entry('L', "l", "../f").file("f", ""), false, std::string(R"("../f": )") + kParent},
        {with('0', "\xE9"), false, R"("\xE9": the name is not UTF-8)"},
        {after("path=../f"), false, std::string(R"("../f": )") + kParent},
        {after("path=/f"), false, std::string(R"("/f": )") + kAbsolute},
        {after("path="), false, R"("": the name is empty)"},
        {after(std::string("path=a\0b", 8)), false, R"("a\x00b": the name holds a NUL)"},
        {after("path=" + std::string(500, 'n') + "/.."), false, '"' + std::string(200, 'n') + "\"...: " + kParent},
        {after("size=4294967296"), false,
         R"("extended": its size record is "4294967296", wanted are bytes below 4 GiB)"},
        {after("size=-1"), false, R"("extended": its size record is "-1", wanted are bytes below 4 GiB)"},
        {after("GNU.sparse.map=0,1"), false, R"("f": it is a sparse file, wanted is a file stored whole)"},
        {after("GNU.volume.filename=f"), false,
         R"("f": it is the rest of a file from another volume, wanted is a file stored whole)"},
        {TarBuilder(first).entry('5', "d/", "hello"), false, R"("d/": it is a directory of 5 bytes, wanted are none)"},
        {TarBuilder(first).entry('\0', "d/", "hello"), true, R"("d/": it is a directory of 5 bytes, wanted are none)"},
        {TarBuilder(first).file("f", "z").changed(124, std::string("00000000018\0", 12)), false, kSize},
        {TarBuilder(first).file("f", std::string(330, 'z')).changed(124, "0000000512k"), false, kSize},
        {TarBuilder(first).extended("path=later"), false,
         R"("later": it is announced by an extended header, but there is no entry)"}};
    for (const char* const record : {"path=x", "size=1", "GNU.sparse.major=1", "GNU.volume.filename=f"}) {
        cases.emplace_back(
            TarBuilder(first).extended(record, 'g'), false,
            R"("extended": it says of all entries that follow what can be true of one: a path, a size, or a part of a file)");
    }
    for (const char* const data : {"nothing", "9 path=f", "4 a=\n", "99 a=b\n", " a=b\n", "6 a=b\n x"}) {
        cases.emplace_back(records(data), false, R"("e": its records are malformed)");
    }
    const std::pair<const char*, const char*> outside[] = {
        {"..", kParent},   {"../f", kParent},  {"a/../../f", kParent}, {R"(a\..\f)", kParent}, {"a/..", kParent},
        {"/f", kAbsolute}, {"\\f", kAbsolute}, {"C:f", kColon},        {"f:stream", kColon}};
    for (const auto& [name, why] : outside) {
        const std::string shown = name == std::string(R"(a\..\f)") ? R"(a\\..\\f)"
                                  : name == std::string("\\f")     ? R"(\\f)"
                                                                   : name;
        for (const char kind : {'0', '5'}) cases.emplace_back(with(kind, name), true, '"' + shown + "\": " + why);
    }
    for (const auto& [builder, inBothWays, why] : cases) {
        const std::string told = extract(Way::TarballOfSize, builder);
        EXPECT_EQ(told.rfind("23: Entry " + why, 0), 0U) << told << " is not " << why;
        EXPECT_EQ(told.substr(told.rfind('\\')), "\\in first=z;");
        if (inBothWays) {
            EXPECT_EQ(extract(Way::Tarball, builder), "23: \\in first=z;");
        }
    }
    EXPECT_EQ(extract(Way::TarballOfSize, with('5', "no/parent")), R"(1: \in\no/parent first=z;no=;no/parent=;)");
    EXPECT_EQ(extract(Way::Tarball, with('5', "no/parent")).rfind("3: Path incorrect : ", 0), 0U);
    // Plainly extracted, extended headers are skipped and not judged; what they hold may be anything.
    EXPECT_EQ(extract(Way::Tarball, with('g', "../g")), "1:  first=z;");
    // A system that drops dots and spaces at the end of a name takes none of these for the parent.
    for (const char* const name : {".. /f", ".../f", "... /f", "a/.. /../f", ".. "}) {
        for (const Way way : kBoth) extract(way, with('0', name));
    }
}

TEST(Tar, HasItsHeadersAddUp) {
    for (size_t i = 0; i < 512; ++i) {
        Archive damaged = TarBuilder().file("f", "z").whole();
        damaged[i] = static_cast<unsigned char>(damaged[i] + 1);
        const bool ignored = i == 154 || i == 155;  // what follows the six digits
        EXPECT_EQ(extract(Way::Tarball, damaged), ignored ? "1:  f=z;" : "21: \\in ") << i;
        const std::string told = extract(Way::TarballOfSize, damaged);
        const char* const expected = ignored ? "1:  f=z;" : "21: The header at byte 0: its checksum is ";
        EXPECT_EQ(told.rfind(expected, 0), 0U) << i << ": " << told;
    }
    EXPECT_EQ(extract(Way::TarballOfSize, TarBuilder().file("f", "z").file("g", "").checksum("number?")),
              "21: The header at byte 1024: its checksum is not a number, its bytes add up to 1590\\in f=z;");
}

// Cut a good archive at every byte: each piece is refused, and none is read past its end.
TEST(Tar, IsRefusedWhenItEndsEarly) {
    const Archive whole = TarBuilder().directory("m/").extended("path=m/net.onnx").file("m/cut", "weights").whole();
    const TempDir directory;
    Filepath destination = directory.path();
    for (size_t size = 0; size < whole.size(); ++size) {
        const Archive piece(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));  // its own block of memory
        const std::string told = text(FileUtils().extractTarballOfSize(piece.data(), size, destination));
        EXPECT_TRUE(told.rfind("23: The archive's ", 0) == 0 || told.find("cut off") != std::string::npos) << told;
    }
    EXPECT_EQ(FileUtils().extractTarballOfSize(nullptr, 9, destination).getCode(), TAR_EXTRACTION_ERROR);
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

// Extracts over what lies in a directory already: the status without the entry's name.
std::string extractOver(const TempDir& directory, const TarBuilder& builder) {
    const Archive archive = builder.whole();
    Filepath destination = directory.path("in");
    const std::string told = text(FileUtils().extractTarballOfSize(archive.data(), archive.size(), destination));
    EXPECT_EQ(directory.read("outside"), "kept");
    const size_t reason = told.rfind("\": ");
    return reason == std::string::npos ? told : told.substr(0, told.find(' ') + 1) + told.substr(reason + 3);
}

TEST(Tar, IsNotWrittenThroughWhatLiesInTheDestination) {
    const TempDir directory;
    directory.write("outside", "kept");
    const std::filesystem::path in = directory.native() / "in";
    std::filesystem::create_directories(in / "d");
    std::filesystem::create_directory(directory.native() / "o");
    std::filesystem::create_hard_link(directory.native() / "outside", in / "hard");
    EXPECT_EQ(extractOver(directory, TarBuilder().file("hard", "z")),
              R"(23: "hard" is a file with further names (hard links))");
    EXPECT_EQ(extractOver(directory, TarBuilder().file("d", "z")), R"(23: "d" is a directory)");
    directory.write("in/d/f", "before");
    EXPECT_EQ(extractOver(directory, TarBuilder().file("d/f", "z")), kSuccess);
    EXPECT_EQ(directory.read("in/d/f"), "z");
#if defined(_WIN32)
    // Wine shows where another file system begins as it shows a link; it follows links made outside of it.
    Filepath root("Z:\\");
    const Archive archive = TarBuilder().file("proc/f", "z").whole();
    EXPECT_EQ(text(FileUtils().extractTarballOfSize(archive.data(), archive.size(), root)),
              R"(23: Entry "proc/f": "proc" is a link)");
#else
    std::filesystem::create_directory_symlink("../../o", in / "d" / "model");
    std::filesystem::create_symlink("../outside", in / "link");
    std::filesystem::create_symlink("../new", in / "dangling");
    ASSERT_EQ(mkfifo((in / "fifo").c_str(), 0600), 0);
    const std::pair<TarBuilder, std::string> cases[] = {
        {TarBuilder().file("d/model/f", "z"), R"("model" is a link)"},
        {TarBuilder().directory("d/model"), R"("model" is a link)"},
        {TarBuilder().directory("d/model/e"), R"("model" is a link)"},
        {TarBuilder().file("d/model", "z"), R"("model" is a link)"},
        {TarBuilder().file("link", "z"), R"("link" is a link)"},
        {TarBuilder().file("dangling", "z"), R"("dangling" is a link)"},
        {TarBuilder().file("fifo", "z"), R"("fifo" is a special file)"},
        {TarBuilder().file("fifo/f", "z"), R"("fifo" is a special file)"}};
    for (const auto& [builder, expected] : cases) EXPECT_EQ(extractOver(directory, builder), "23: " + expected);
    EXPECT_TRUE(std::filesystem::is_empty(directory.native() / "o") &&
                !std::filesystem::exists(directory.native() / "new"));
    // The destination itself is the host's: a link there is followed.
    std::filesystem::create_directory_symlink("../o", in / "host");
    Filepath host = directory.path("in\\host");
    const Archive archive = TarBuilder().file("f", "z").whole();
    EXPECT_EQ(text(FileUtils().extractTarballOfSize(archive.data(), archive.size(), host)), kSuccess);
    EXPECT_EQ(directory.read("o/f"), "z");
#endif
}

TEST(Tar, NeedsADestinationThatIsThere) {
    const TempDir directory;
    directory.write("file", "");
    const Archive archive = TarBuilder().file("f", "z").whole();
    const std::pair<Filepath, std::string> cases[] = {
        {Filepath(directory.path().getPathString() + std::string("\0x", 2)), "it holds a NUL"},
        {directory.path("missing"), "wanted is a directory that is there and can be entered"},
        {directory.path("file"), "wanted is a directory that is there and can be entered"}};
    for (auto [destination, why] : cases) {
        const std::string before = destination.getPathString();
        const std::string told = text(FileUtils().extractTarballOfSize(archive.data(), archive.size(), destination));
        EXPECT_EQ(told.rfind("23: Destination \"", 0) + told.rfind("\": " + why) + 3 + why.size(), told.size()) << told;
        EXPECT_EQ(destination.getPathString(), before);
    }
    EXPECT_EQ(treeOf(directory.native()), "file=;");
    std::filesystem::create_directory(directory.native() / "current");
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory.native() / "current");
    Filepath empty;
    EXPECT_EQ(text(FileUtils().extractTarballOfSize(archive.data(), archive.size(), empty)), kSuccess);
    std::filesystem::current_path(before);
    EXPECT_EQ(treeOf(directory.native()), "current=;current/f=z;file=;");
    Filepath missing = directory.path("missing");  // where nothing is written, nothing is needed
    EXPECT_EQ(text(FileUtils().extractTarballOfSize(TarBuilder().whole().data(), 512, missing)), kSuccess);
}

// What one directory after another costs must not grow with their depth, nor may each stay open.
TEST(Tar, OfDeepDirectoriesIsExtracted) {
    const TempDir directory;
    const std::string root = directory.native().string();
    const size_t depth =
        std::filesystem::path::preferred_separator == '\\' ? 20 : 1100;  // more than may be open at a time
    TarBuilder builder;
    std::string path = "d";
    for (size_t i = 1; i < depth; ++i) path += "/d";
    for (const char* const name : {"/f", "/g"}) builder.extended("path=" + path + name).file("f", "z");
    const Archive archive = builder.whole();
    Filepath destination(root);
    EXPECT_EQ(text(FileUtils().extractTarballOfSize(archive.data(), archive.size(), destination)), kSuccess);
    EXPECT_EQ(directory.read(path + "/f") + directory.read(path + "/g"), "zz");
}

#if defined(_WIN32)
TEST(Tar, IsRefusedWhereWindowsHasAnotherIdeaOfAName) {
    const char* const kDevice = " is the name of a device on this system";
    const char* const kDropped = " ends in a dot or a space, which this system drops";
    const std::pair<std::string, const char*> cases[] = {
        {"aux.json", kDevice},    {"nul.onnx", kDevice},      {"COM1", kDevice},   {"Con", kDevice},
        {"prn .tar.gz", kDevice}, {"lpt\xC2\xB3.x", kDevice}, {"conin$", kDevice}, {"CONOUT$.txt", kDevice},
        {"a.", kDropped},         {"a ", kDropped},           {"...", kDropped}};
    for (const auto& [name, why] : cases) {
        for (const std::string& path : {name, name + "/f", "d/" + name}) {
            std::string expected = "23: Entry \"" + path;
            expected.append("\": \"").append(name).append("\"").append(why).append("\\in ");
            EXPECT_EQ(extract(Way::TarballOfSize, TarBuilder().file(path, "z")), expected);
        }
    }
    const TarBuilder fine =
        TarBuilder().file("com10", "z").file("auxiliary.x", "z").file("nul_", "z").file("COM0", "z");
    EXPECT_EQ(extract(Way::TarballOfSize, fine), "1:  COM0=z;auxiliary.x=z;com10=z;nul_=z;");
}

// What is written can be opened by the path that the host would use.
TEST(Tar, IsRefusedWhereItsPathIsTooLong) {
    const TempDir directory;
    const std::string name = std::string(200, 'd') + "/" + std::string(200, 'f');
    const Archive archive = TarBuilder().extended("path=" + name).file("f", "z").whole();
    Filepath destination = directory.path();
    const bool taken = FileUtils().extractTarballOfSize(archive.data(), archive.size(), destination).ok();
    EXPECT_EQ(taken, !FileUtils().readBinaryFileToVector(directory.path(name)).empty());
}

TEST(Tar, IsExtractedBelowALiteralPath) {
    Archive archive = TarBuilder().directory("./m/").directory("./m/n").file("./m/n//f", "z").whole();
    for (const Way way : kBoth) {
        const TempDir directory;
        const Filepath literal("\\\\?\\" + directory.path().getPathString());
        Filepath destination = literal;
        EXPECT_EQ(
            text(way == Way::Tarball ? FileUtils().extractTarball(archive.data(), destination)
                                     : FileUtils().extractTarballOfSize(archive.data(), archive.size(), destination)),
            kSuccess);
        EXPECT_EQ(destination.getPathString(), literal.getPathString() + "\\m\\");
        EXPECT_EQ(treeOf(directory.native()), "m=;m/n=;m/n/f=z;");
        FileUtils files;
        for (const char* const name : {"m/n/f", "m\\n\\f"}) {
            Filepath file = literal;
            file.append(Filepath(name));
            EXPECT_EQ(files.readBinaryFileToString(file) + std::to_string(files.getFileSize(file)), "z1");
        }
    }
}
#endif

}  // namespace
}  // namespace TarnoMirelo
