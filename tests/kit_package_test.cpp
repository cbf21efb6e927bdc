// The kit: packages compared with what their manifests state.

#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/kit/digest.h>
#include <TarnoMirelo/kit/package.h>
#include <TarnoMirelo/kit/texts.h>
#include <TarnoMirelo/manifest.h>

#include <gtest/gtest.h>

using namespace TarnoMirelo;
using namespace TarnoMirelo::Kit;

namespace {

std::string digestOfText(const std::string& bytes) {
    std::string digest;
    EXPECT_TRUE(sha256(bytes.data(), bytes.size(), digest).ok());
    return digest;
}

// A component object with further members, each with a comma before it.
std::string component(const std::string& name, const std::string& kind, const std::string& more) {
    return R"({"name": ")" + name + R"(", "path": ")" + name + R"(", "type": ")" + kind + "\"" + more + "}";
}
std::string sized(uint64_t size) { return ", \"size\": " + std::to_string(size); }
std::string digested(const std::string& digest) { return R"(, "sha256": ")" + digest + "\""; }

class KitPackage : public testing::Test {
 protected:
    Filepath manifest(const std::vector<std::string>& components, const std::string& key = "WinML") const {
        std::string joined;
        for (const std::string& each : components) joined += (joined.empty() ? "" : ", ") + each;
        return package.write("manifest.json", R"({"targets": {")" + key + R"(": {"components": [)" + joined + "]}}}");
    }

    const TempDir package;
    const std::string weights = std::string(300000, 'w');
    PackageReport report;
};

TEST_F(KitPackage, IsWholeWhereItIsWhatTheManifestStates) {
    package.write("net", weights);
    package.write("more", "abc");
    const std::vector<std::string> components = {
        component("net", "file", sized(weights.size()) + digested(digestOfText(weights))),
        component("more", "secured_tar", digested(digestOfText("abc"))),
        component("net", "secured_file", sized(weights.size())),  // without a digest
        component("assets", "dir", ""),
        component("later", "memory_stream", ""),
    };
    for (const unsigned threads : {0U, 1U, 2U, 100U}) {
        uint64_t done = 0;
        PackageOptions options;
        options.threads = threads;
        options.progress = [&](const PackageProgress& progress) {
            EXPECT_LT(done, progress.done);
            EXPECT_TRUE(progress.path == "net" || progress.path == "more");
            EXPECT_EQ(progress.total, 300003U);
            done = progress.done;
        };
        EXPECT_EQ(text(verifyPackage(manifest(components, "Openvino"), report, options)), kSuccess);
        EXPECT_EQ(done, 300003U);
        EXPECT_EQ(report.verified, 2U);
        EXPECT_EQ(report.unstated, std::vector<std::string>({"net", "assets"}));
        EXPECT_TRUE(report.mismatches.empty());
    }
    const Filepath slashed(package.path().getPathString() + "/manifest.json");
    EXPECT_EQ(text(verifyPackage(slashed, report)), kSuccess);
}

#if defined(_WIN32)
TEST_F(KitPackage, IsFoundBelowALiteralRoot) {
    std::filesystem::create_directory(package.native() / "weights");
    package.write("weights/net", weights);
    const std::string path = manifest({component("weights/net", "file", sized(weights.size()))}).getPathString();
    const std::filesystem::path absolute = std::filesystem::absolute(path).make_preferred();
    EXPECT_EQ(text(verifyPackage(Filepath(R"(\\?\)" + absolute.string()), report)), kSuccess);
    EXPECT_TRUE(report.mismatches.empty());
    EXPECT_EQ(report.unstated, std::vector<std::string>({"weights/net"}));  // of the right size, without a digest
}
#endif

TEST_F(KitPackage, TellsEveryMismatch) {
    const std::string kDigits = "64 lower-case hexadecimal digits";
    const std::string digest = digestOfText(weights);
    package.write("changed", "W" + weights.substr(1));
    package.write("longer", weights + "w");
    package.write("empty", "");
    const struct {
        std::string component, found, wanted;
    } cases[] = {
        {component("changed", "file", sized(weights.size()) + digested(digest)),
         "sha256 " + digestOfText("W" + weights.substr(1)), "sha256 " + digest},
        {component("longer", "file", sized(weights.size()) + digested(digest)), "300001 bytes", "300000 bytes"},
        {component("longer", "secured_file", sized(weights.size())), "300001 bytes", "300000 bytes"},
        {component("empty", "file", digested(digest)), "sha256 " + digestOfText(""), "sha256 " + digest},
        {component("absent", "secured_tar", digested(digest)),
         "no file that can be read (Cannot open the file " + toText(package.path("absent")) + ": ", "sha256 " + digest},
        {component("../net", "file", digested(digest)), "path \"../net\"", "a name below the model's directory"},
        {component("empty", "file", digested("abc")), "sha256 \"abc\"", kDigits},
        {component("empty", "file", digested(digestOfText("") + R"(\u0000)")), "sha256 \"" + digestOfText("") + "...\"",
         kDigits},
        {component("empty", "file", digested(std::string(64, 'A'))), "sha256 \"" + std::string(64, 'A') + "\"",
         kDigits},
        {component("empty", "file", R"(, "sha256": 7)"), "sha256 \"\"", kDigits},
        {component("empty", "file", R"(, "size": -1)"), "a \"size\" that is no whole number", "a number of bytes"},
        {component("empty", "file", R"(, "size": "0")"), "a \"size\" that is no whole number", "a number of bytes"},
        {component("assets", "dir", digested(digest)), "kind \"dir\"",
         "the kind of a file, since a size or a digest is stated"},
    };
    std::vector<std::string> components;
    for (const auto& each : cases) components.push_back(each.component);
    for (const unsigned threads : {1U, 3U}) {
        PackageOptions options;
        options.threads = threads;
        EXPECT_EQ(text(verifyPackage(manifest(components), report, options)),
                  "12: Component \"changed\": found is " + cases[0].found + ", wanted is sha256 " + digest +
                      "; mismatches beside it: 12");
        ASSERT_EQ(report.mismatches.size(), components.size());
        for (size_t i = 0; i < components.size(); ++i) {
            EXPECT_EQ(upToReason(report.mismatches[i].found, cases[i].found), cases[i].found);
            EXPECT_EQ(report.mismatches[i].wanted, cases[i].wanted);
        }
        EXPECT_EQ(report.verified, 0U);
    }
    EXPECT_EQ(text(verifyPackage(manifest({components[1]}), report)),
              "12: Component \"longer\": found is 300001 bytes, wanted is 300000 bytes");
}

// The loader takes such a manifest, as it takes any other key.
TEST_F(KitPackage, EndsWhereTheManifestOrTheCallerEndsIt) {
    package.write("net", weights);
    const Filepath path = manifest({component("net", "file", digested(digestOfText(weights)))});
    EXPECT_EQ(text(ModelMetadata().load(path)), kSuccess);
    const Filepath none = package.path("none.json");
    EXPECT_EQ(text(verifyPackage(none, report)), "12: Failed to open metadata file at " + none.getPathString());
    for (const unsigned threads : {1U, 4U}) {
        PackageOptions options;
        options.threads = threads;
        options.progress = [](const PackageProgress&) { throw std::runtime_error("enough"); };
        EXPECT_EQ(raised([&] { verifyPackage(path, report, options); }), "2: enough");
        int calls = 0;
        options.progress = [&calls](const PackageProgress&) {
            if (++calls == 3) throw FileException("enough");
        };
        const std::string net = component("net", "file", digested(digestOfText(weights)));
        EXPECT_EQ(text(verifyPackage(manifest({net, net, net, net}), report, options)), "3: enough");
        EXPECT_EQ(calls, 3);
    }
}

}  // namespace
