// The kit: bytes and paths of components.

#include "support/protection.h"
#include "support/tar_builder.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/texts.h>

#include <gtest/gtest.h>

using namespace TarnoMirelo;
using namespace TarnoMirelo::Kit;

namespace {

#if defined(_WIN32)
constexpr bool kOnWindows = true;
#else
constexpr bool kOnWindows = false;
#endif

ModelComponent component(const char* kind, const std::string& path) {
    ModelComponent made;
    made.name = "net";
    made.path = path;
    made.type = kind;
    return made;
}

std::string bytesOf(const ComponentBytes& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), static_cast<size_t>(bytes.size())};
}

ModelComponent protectedComponent(const char* kind, const std::string& path, const unsigned char* key = kTestKey) {
    ModelComponent made = component(kind, path);
    made.setCryptoKey(key);
    return made;
}

std::string archiveOf(const TarBuilder& builder) { return stringOf(builder.whole()); }

}  // namespace

TEST(KitComponents, StayBelowTheirRoot) {
    for (const char* const path :
         {"a", "a/b", "a\\b", "./a", "a//b", "a/.", "...a", "..a/b", "a b/c.d", "conduit", "com"}) {
        EXPECT_TRUE(staysInside(path)) << path;
    }
    for (const char* const path : {"..", "../a", R"(..\a)", "a/../b", "a/..", R"(a\..\..\b)", "/a", R"(\a)",
                                   R"(\\host\share)", R"(C:\a)", "C:a", "a:b"}) {
        EXPECT_FALSE(staysInside(path)) << path;
    }
    EXPECT_FALSE(staysInside(std::string("a\0/../b", 7)));
    for (const char* const path :
         {"nul", "NUL.onnx", "a/aux.json", "COM1", "com\xC2\xB9.x", "a.", "a /b", "a./b", "a/con "}) {
        EXPECT_EQ(staysInside(path), !kOnWindows) << path;
    }
}

TEST(KitComponents, AreReadWhereTheyAre) {
    const TempDir root;
    root.write("net.onnx", std::string("b\0ytes", 6));
    ComponentBytes bytes;
    ASSERT_EQ(text(readComponent(component("file", "./net.onnx"), root.path(), bytes)), kSuccess);
    EXPECT_EQ(bytesOf(bytes), std::string("b\0ytes", 6));
    const ComponentBytes moved = std::move(bytes);
    EXPECT_EQ(bytesOf(moved), std::string("b\0ytes", 6));

    ModelComponent stream = component("memory_stream", "");
    stream.buffer = {1, 2, 3};
    ASSERT_EQ(text(readComponent(stream, root.path(), bytes)), kSuccess);
    EXPECT_EQ(bytes.data(), stream.buffer.data());
    EXPECT_EQ(bytes.size(), 3U);

    Filepath path;
    ASSERT_EQ(text(locateComponent(component("dir", "."), root.path(), path)), kSuccess);
    ASSERT_EQ(text(locateComponent(component("file", "net.onnx"), root.path(), path)), kSuccess);
    EXPECT_EQ(path.getPathString(), root.path("net.onnx").getPathString());
}

TEST(KitComponents, SayWhatIsWrong) {
    const TempDir root;
    const std::string about = "Component \"net\": ";
    const std::string below = ", wanted is a name below the model's directory";
    const std::string absent = toText(root.path("absent"));
    const struct {
        ModelComponent component;
        std::string read, located;
    } cases[] = {
        {component("file", "absent"), "3: " + about + "cannot open the file " + absent + ": ",
         "3: " + about + "there is no " + absent},
        {component("file", "../net"), "12: " + about + "the path is \"../net\"" + below, "same"},
        {component("file", std::string("net\0x", 5)), "12: " + about + "the path is \"net\"" + below, "same"},
        {component("file", ""), "12: " + about + "the path is \"\"" + below, "same"},
        {component("file", "\xFF"), "3: " + about + "the path is not UTF-8", "same"},
        {component("memory_stream", ""), "12: " + about + "the buffer is empty, wanted is the content from the host",
         "12: " + about + R"(the kind is "memory_stream", wanted is "file" or "dir")"},
        {component("dir", ""),
         "12: " + about +
             R"(the kind is "dir", wanted is "file", "memory_stream", "secured_file" or "secured_memory_stream")",
         "12: " + about + "the path is \"\"" + below},
        {component("secured_file", "net"),
         "12: " + about + "the key is all zero, wanted is the one that the content was protected with",
         "12: " + about + R"(the kind is "secured_file", wanted is "file" or "dir")"},
    };
    for (const auto& each : cases) {
        ComponentBytes bytes;
        EXPECT_EQ(upToReason(text(readComponent(each.component, root.path(), bytes)), each.read), each.read);
        EXPECT_EQ(bytes.data(), nullptr);
        Filepath path;
        EXPECT_EQ(text(locateComponent(each.component, root.path(), path)),
                  each.located == "same" ? each.read : each.located);
        EXPECT_EQ(path.getPathString(), "");
    }
}

TEST(KitComponents, AreOpenedInMemoryWhereTheyAreProtected) {
    const TempDir root;
    root.write("net", stringOf(protectedBytes("weights")));
    ComponentBytes bytes;
    ASSERT_EQ(text(readComponent(protectedComponent("secured_file", "net"), root.path(), bytes)), kSuccess);
    EXPECT_EQ(bytesOf(bytes), "weights");

    ModelComponent stream = protectedComponent("secured_memory_stream", "");
    stream.buffer = protectedBytes("in memory");
    ASSERT_EQ(text(readComponent(stream, root.path(), bytes)), kSuccess);
    const ComponentBytes moved = std::move(bytes);
    EXPECT_EQ(bytesOf(moved), "in memory");

    const auto archive = TarBuilder()
                             .directory("model/")
                             .file("./model/net", "weights")
                             .file("a\\b", "")
                             .extended("path=model/\xC3\xA4")
                             .file("cut", "more");
    root.write("tar", stringOf(protectedBytes(archiveOf(archive))));
    ComponentFiles files;
    ASSERT_EQ(text(readComponentFiles(protectedComponent("secured_tar", "tar"), root.path(), files)), kSuccess);
    const ComponentFiles kept = std::move(files);
    std::string listed;
    for (const ComponentFiles::File& file : kept.files()) {
        listed += file.name + "=" + std::string(file.data, file.data + file.size) + ";";
    }
    EXPECT_EQ(listed, "model/net=weights;a/b=;model/\xC3\xA4=more;");
    EXPECT_EQ(kept.find("a/b"), &kept.files()[1]);
    EXPECT_EQ(kept.find("A/b"), nullptr);
    EXPECT_EQ(kept.names(), std::vector<std::string>({"model/net", "a/b", "model/\xC3\xA4"}));
}

TEST(KitComponents, HaveOneFileOfAnEnding) {
    const std::string begin = "12: Component \"net\": the ";
    const std::string wanted = " has to hold one file whose name ends in \".Onnx\", found: ";
    const struct {
        const char* kind;
        std::vector<std::string> names;
        std::string expected;
    } cases[] = {
        {"dir", {"a.json", "b.ONNX", "onnx"}, "b.ONNX"},
        {"secured_tar", {"m/a.onnx"}, "m/a.onnx"},
        {"secured_tar", {"b.ONNX", "a.onnx", "c.bin"}, begin + "archive" + wanted + R"("a.onnx", "b.ONNX")"},
        {"dir", {"a.onnx.bin"}, begin + "folder" + wanted + "none"},
    };
    for (const auto& each : cases) {
        std::string name;
        const MireloStatus status = findOnlyName(component(each.kind, "."), each.names, ".Onnx", name);
        EXPECT_EQ(status.ok() ? name : text(status), each.expected);
    }
}

TEST(KitComponents, SayWhyTheyDoNotOpen) {
    const TempDir root;
    const std::string about = "Component \"net\": ";
    const std::string refused = "12: " + about + "the" + kDoesNotOpen.substr(std::string("12: The").size());
    root.write("net", stringOf(protectedBytes("weights")));
    root.write("plain", "weights");
    ModelComponent stream = protectedComponent("secured_memory_stream", "");
    stream.buffer = protectedBytes("weights");
    stream.buffer[40] ^= 1;
    const struct {
        ModelComponent component;
        std::string expected;
    } cases[] = {
        {protectedComponent("secured_file", "net", kOtherKey), refused},
        {protectedComponent("secured_file", "plain"), refused},
        {protectedComponent("secured_file", "absent"),
         "3: " + about + "cannot open the file " + toText(root.path("absent")) + ": "},
        {protectedComponent("secured_file", "../net"),
         "12: " + about + "the path is \"../net\", wanted is a name below the model's directory"},
        {protectedComponent("secured_file", "\xFF"), "3: " + about + "the path is not UTF-8"},
        {protectedComponent("secured_memory_stream", ""),
         "12: " + about + "the buffer is empty, wanted is the content from the host"},
        {stream, refused},
        {protectedComponent("secured_tar", "net"),
         "12: " + about +
             R"(the kind is "secured_tar", wanted is "file", "memory_stream", "secured_file" or "secured_memory_stream")"},
    };
    for (const auto& each : cases) {
        ComponentBytes bytes;
        EXPECT_EQ(upToReason(text(readComponent(each.component, root.path(), bytes)), each.expected), each.expected);
        EXPECT_EQ(bytes.data(), nullptr);
    }
}

// By the rules for archives on a disk, and one more: names are what a backend finds files by.
TEST(KitComponents, RefuseArchivesThatAreNotWholeAndPlain) {
    const TempDir root;
    const TarBuilder good = TarBuilder().file("net", "weights");
    const std::string whole = archiveOf(good);
    std::string damaged = whole;
    damaged[0] = 'm';
    const std::pair<std::string, std::string> cases[] = {
        {archiveOf(TarBuilder(good).file("net", "others")), R"(entry "net": its name comes twice)"},
        {archiveOf(TarBuilder(good).file("./net", "others")), R"(entry "./net": its name comes twice)"},
        {archiveOf(TarBuilder().file("a/b", "").file("a\\b", "")), R"(entry "a\\b": its name comes twice)"},
        {archiveOf(TarBuilder(good).entry('2', "link")),
         R"(entry "link": it is a symbolic link, wanted are files and directories)"},
        {archiveOf(TarBuilder().file("../net", "")), R"(entry "../net": the name has a component "..")"},
        {archiveOf(TarBuilder().file("/net", "")), R"(entry "/net": the name is absolute)"},
        {damaged, "the header at byte 0: its checksum is 1821, its bytes add up to 1820"},
        {whole.substr(0, 1024),
         "the archive's 1024 bytes hold no end block, wanted is a block of zero bytes behind the last entry"},
        {whole.substr(0, 1000),
         R"(entry "net": its data is cut off: its size is 7, left are 488 bytes with the padding)"},
        {"weights", "the archive's 7 bytes hold no end block, wanted is a block of zero bytes behind the last entry"},
    };
    for (const auto& [archive, expected] : cases) {
        root.write("tar", stringOf(protectedBytes(archive)));
        ComponentFiles files;
        EXPECT_EQ(text(readComponentFiles(protectedComponent("secured_tar", "tar"), root.path(), files)),
                  "12: Component \"net\": " + expected);
        EXPECT_TRUE(files.files().empty());
    }
    ComponentFiles files;
    EXPECT_EQ(text(readComponentFiles(protectedComponent("secured_file", "tar"), root.path(), files)),
              R"(12: Component "net": the kind is "secured_file", wanted is "secured_tar")");
}

TEST(KitComponents, GetTheirKeyWhereTheyAreProtected) {
    ModelTarget target;
    target.components = {component("file", "a"), component("secured_file", "b"), component("secured_tar", "c"),
                         component("secured_memory_stream", "")};
    ModelTarget plain;
    plain.components = {component("file", "a")};
    ModelMetadata metadata;
    metadata.setTargets({{MireloModelType::WinML, target}, {MireloModelType::CoreML, plain}});
    ASSERT_EQ(text(setProtectionKey(metadata, MireloModelType::WinML, kTestKey)), kSuccess);
    std::string keys;
    for (const ModelComponent& each : metadata.getTargetMetadata(MireloModelType::WinML).components) {
        keys += std::equal(kTestKey, kTestKey + 16, each.encryption.getKey()) ? "1" : "0";
    }
    EXPECT_EQ(keys, "0111");
    EXPECT_EQ(text(setProtectionKey(metadata, MireloModelType::WinML, kNoKey)),
              "7: The key is all zero, wanted are 16 bytes that are secret");
    EXPECT_EQ(text(setProtectionKey(metadata, MireloModelType::TFLite, kTestKey)),
              "7: The manifest has no target of type TF-Lite");
    EXPECT_EQ(text(setProtectionKey(metadata, MireloModelType::CoreML, kTestKey)),
              "12: No component of the target is protected");
}
