// The kit: bytes and paths of components.

#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/kit/components.h>

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
    const struct {
        ModelComponent component;
        std::string read, located;
    } cases[] = {
        {component("file", "absent"), "3: " + about + "cannot open " + root.path("absent").getPathString(), "same"},
        {component("file", "../net"), "12: " + about + "the path is \"../net\"" + below, "same"},
        {component("file", std::string("net\0x", 5)), "12: " + about + "the path is \"net\"" + below, "same"},
        {component("file", ""), "12: " + about + "the path is \"\"" + below, "same"},
        {component("file", "\xFF"), "3: " + about + "the path is not UTF-8", "same"},
        {component("memory_stream", ""), "12: " + about + "the buffer is empty, wanted is the content from the host",
         "12: " + about + R"(the kind is "memory_stream", wanted is "file" or "dir")"},
        {component("dir", ""), "12: " + about + R"(the kind is "dir", wanted is "file" or "memory_stream")",
         "12: " + about + "the path is \"\"" + below},
        {component("secured_file", "net"),
         "12: " + about +
             "the kind is \"secured_file\", which is protected and can't be read, wanted is \"file\" or "
             "\"memory_stream\"",
         "12: " + about +
             R"(the kind is "secured_file", which is protected and can't be read, wanted is "file" or "dir")"},
    };
    for (const auto& each : cases) {
        ComponentBytes bytes;
        EXPECT_EQ(text(readComponent(each.component, root.path(), bytes)), each.read);
        EXPECT_EQ(bytes.data(), nullptr);
        Filepath path;
        EXPECT_EQ(text(locateComponent(each.component, root.path(), path)),
                  each.located == "same" ? each.read : each.located);
        EXPECT_EQ(path.getPathString(), "");
    }
}
