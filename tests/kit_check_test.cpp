// The kit: mistakes in manifests and packages.

#include "support/manifest_promises.h"
#include "support/scripted_model.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/kit/check.h>
#include <TarnoMirelo/kit/digest.h>
#include <TarnoMirelo/kit/texts.h>

#include <gtest/gtest.h>

#include <random>
#include <sstream>

using namespace TarnoMirelo;
using namespace TarnoMirelo::Kit;

namespace {

std::string textOf(const char* name) {
    std::ifstream file(std::string(TEST_DATA) + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string baseManifest() { return textOf("/manifest_base.json"); }

std::string print(const std::vector<Finding>& findings) {
    std::ostringstream out;
    for (const Finding& each : findings) {
        out << each.line << ':' << each.column << " [" << each.where << "] " << toText(each) << "\n";
    }
    return out.str();
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    const size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return text.replace(at, what.size(), with);
}

// As findings show a path: cut where it is long.
std::string quotedText(const std::string& path) {
    return '"' + (path.size() <= 60 ? path : path.substr(0, 60) + "...") + '"';
}

// A new file each time: some file systems write at once to the disk what replaces a file.
Filepath fresh(const TempDir& directory, const std::string& text) {
    std::filesystem::remove(directory.native() / "m");
    return directory.write("m", text);
}

// What is found in the base manifest when one part of it gives way to another.
std::string check(const std::string& what, const std::string& with) {
    return print(checkManifestText(replaced(baseManifest(), what, with)));
}

}  // namespace

TEST(KitCheck, FindsNothingInASoundManifest) {
    EXPECT_EQ(print(checkManifestText(baseManifest())), "");
    EXPECT_EQ(print(checkManifestText(textOf("/manifest_open.json"))), "");
}

TEST(KitCheck, FindsEveryMistakeAtItsPlace) {
    const std::vector<TextCase> cases = readCases(TEST_DATA "/manifest_mistakes.txt");
    EXPECT_GE(cases.size(), 38U);
    for (const TextCase& each : cases) {
        const size_t middle = each.input.find("\n->\n");
        ASSERT_NE(middle, std::string::npos) << each.title;
        const std::string with = each.input.substr(middle + 4);
        EXPECT_EQ(check(each.input.substr(0, middle), with.substr(0, with.find_last_of('\n'))), each.expected)
            << each.title;
    }
}

// A type that is not there is not taken for another one.
TEST(KitCheck, AdvisesATypeOnlyWhereItIsMeant) {
    const struct {
        const char* what;
        std::vector<const char*> with;
        const char* advice;
    } cases[] = {
        {"float", {"bfloat16", "int", "uint", "int128", "float128", "float8"}, "Write the network's element type."},
        {"float", {"unit8", "Uint_8", "uin8"}, "Write \"uint8\"."},
        {"RGB",
         {"ARGB", "XRGB", "RGBX", "ABGR", "RG"},
         "Write the channels in their order, or \"one\" for a single channel."},
        {"tensor", {"int8", "int16", "float", "float32", "tesnor"}, "Write \"tensor\"."},
        {"file", {"secured_stream", "secured_dir", "tar"}, "Write \"file\" for a file."},
        {"file", {"secured-file", "securedfile"}, "Write \"secured_file\"."},
        {"size", {"sha512", "x1"}, "Remove it: nothing reads it."},
    };
    for (const auto& each : cases) {
        for (const char* const with : each.with) {
            const std::string found = check(each.what, with);
            EXPECT_NE(found.find(each.advice), std::string::npos) << found;
        }
    }
}

TEST(KitCheck, FindsAByteOrderMarkAndGoesOn) {
    EXPECT_EQ(print(checkManifestText("\xEF\xBB\xBF" + replaced(baseManifest(), "{", "{ // n\xC3\xA4me\n"))),
              "1:1 [] error: The loader refuses a byte-order mark. Found the bytes EF BB BF, wanted UTF-8 without one. "
              "Save the manifest as \"UTF-8\", not as \"UTF-8 with BOM\".\n"
              "1:3 [] error: The loader refuses comments. Found \"// n\xC3\xA4me\", wanted JSON without comments. "
              "Remove the comment.\n");
    // Columns count characters, and what is shown is UTF-8 on one line.
    EXPECT_EQ(
        check("\"Example\"", "\"\xC3\xA4\", \"x\xFF\\u0001\": 1"),
        "5:20 [/x??] error: The key is not known. Found \"x??\", wanted \"$schema\", \"id\", \"name\", \"author\", "
        "\"description\", \"sdkVersion\", \"version\" or \"targets\". Remove it: nothing reads it.\n");
    EXPECT_EQ(
        check("\"Example\"", "\"\xFF\""),
        "5:15 [/author] warning: The text is not UTF-8. Found \"?\", wanted UTF-8. Save the manifest as UTF-8.\n");
}

// The advice is about what is there, not about what the parser looked for.
TEST(KitCheck, NamesWhatBreaksTheText) {
    const std::string utf8 =
        "wanted UTF-8. Save the manifest as UTF-8, not as UTF-16; if it is UTF-8 already, remove the NUL.\n";
    const std::string control =
        ", wanted a text without control characters. Write a line break as \\n, a tab as \\t.\n";
    const std::string inId = "1:10 [/id] error: The text is no JSON. Found ";
    const struct {
        std::string text;
        std::string expected;
    } cases[] = {
        {{"\xFF\xFE{\0}\0", 6}, "1:1 [] error: The text is no JSON. Found \"??{?}?\", " + utf8},
        {{"\xFE\xFF\0{\0}", 6}, "1:1 [] error: The text is no JSON. Found \"???{?}\", " + utf8},
        {{"{\0}\0", 4}, "1:2 [] error: The text is no JSON. Found a NUL byte, " + utf8},
        {{"\0{\0}", 4}, "1:1 [] error: The text is no JSON. Found a NUL byte, " + utf8},
        {{"{\"id\": \"a\0\"}", 12}, inId + "a NUL byte, " + utf8},
        {"{\"id\": \"a\tb\"}", inId + "a tab" + control},
        {"{\"id\": \"a\r\n\"}", inId + "the end of the line" + control},
        {"{\"id\": \"a\x01\"}", inId + R"("?"}")" + control},
        {R"({"id": "a\x"})",
         inId + R"("\x"}", wanted \", \\, \/, \b, \f, \n, \r, \t or \u. Write a backslash as \\.)" + "\n"},
        {"{ /* n }",
         "1:9 [] error: The text is no JSON. Found the end of the text, wanted JSON without comments. Remove the "
         "comment: it does not end, or does not begin with // or /*.\n"},
    };
    for (const auto& each : cases) EXPECT_EQ(print(checkManifestText(each.text)), each.expected) << each.text;
    EXPECT_EQ(check("\"Example\"", R"("\uDC00")"),
              "5:15 [/author] warning: The text is not UTF-8. Found \"\\uDC00\", wanted UTF-8. Save the manifest as "
              "UTF-8, and write a character itself, not its \\u.\n");
}

namespace {

// Kinds of JSON text: what stands where a value is expected.
const std::string kWellFormed[] = {"\"\"",
                                   R"("\"\\\/\b\f\n\r\t")",
                                   R"("\u00e9")",
                                   R"("\ud834\udd1e")",
                                   "\"\xF0\x9D\x84\x9E\"",
                                   "\"\x7F\"",
                                   "\" // \"",
                                   "\"/* */\"",
                                   "0",
                                   "-0",
                                   "-1",
                                   "1e5",
                                   "1E+5",
                                   "1.5e-5",
                                   "0.1",
                                   "123456789012345678901234567890",
                                   "1e-400",
                                   "true",
                                   "false",
                                   "null",
                                   "[]",
                                   "[ ]",
                                   "{}",
                                   "{ }",
                                   "[[[]]]",
                                   R"({"":0})",
                                   R"({"a":{"a":0},"b":[0]})",
                                   "[1,\t2]",
                                   "\r\n1 ",
                                   "[\"a\",1,null,{}]",
                                   R"({"a":1,"a":2})"};
const std::string kBroken[] = {"",
                               "nul",
                               "True",
                               "NaN",
                               "Infinity",
                               "-",
                               "+1",
                               "01",
                               "-01",
                               ".5",
                               "1.",
                               "1e",
                               "1e+",
                               "0x1",
                               "1 000",
                               "1_0",
                               "'a'",
                               "\"",
                               "\"a",
                               R"("\")",
                               R"("\x41")",
                               R"("\u12")",
                               R"("\u12G4")",
                               R"("\ud834")",
                               R"("\ud834\u0061")",

                               "\"\t\"",
                               "\"\n\"",
                               std::string("\"\0\"", 3),
                               std::string("\0", 1),
                               "\x0C",
                               "\xC2\xA0[]",
                               "\xEF\xBB\xBF[]",
                               "[",
                               "]",
                               "[1,]",
                               "[,1]",
                               "[1,,2]",
                               "[1 2]",
                               "[1:2]",
                               "[1}",
                               "{",
                               "}",
                               "{1:2}",
                               "{\"a\"}",
                               "{\"a\":}",
                               "{\"a\":1,}",
                               R"({"a":1 "b":2})",
                               "{,}",
                               "{\"a\"::1}",
                               "{'a':1}",
                               "{a:1}",
                               "{\"a\",1}",
                               "{\"a\":1]",
                               "1 2",
                               "// c\n1",
                               "/* c */ 1",
                               "1 # c",
                               "1e400",
                               "-1e400",
                               "\xFF",
                               "@",
                               "\\u0031",
                               "undefined",
                               "<null>"};
// What parsers may take or not.
const std::string kEither[] = {"\"\xFF\"",
                               "\"\xC0\xAF\"",
                               "\"\xED\xA0\x80\"",
                               "\"\xF4\x90\x80\x80\"",
                               "\"\xE2\x82\"",
                               R"("\uDFFF\uD800")",
                               R"("\udd1e")",
                               R"("\uD800\uD800")",
                               "\"\xEF\xBF\xBF\"",
                               "-0.0",
                               "1e308",
                               "1.8e308",
                               "18446744073709551616",
                               R"("\u0000")",
                               R"({"\u0000":1})",
                               "\"\xE2\x80\xA8\""};

bool saysNoJson(const std::vector<Finding>& findings) {
    return std::any_of(findings.begin(), findings.end(), [](const Finding& each) {
        return each.what == "The text is no JSON" || each.what == "The loader refuses comments";
    });
}

}  // namespace

TEST(KitCheck, TakesForJsonWhatTheLoaderTakes) {
    const TempDir directory;
    const auto look = [&](const std::string& value, const char* before, const bool* isJson) {
        const std::string text = replaced(baseManifest(), R"("author": "Example")", before + value);
        const Filepath path = fresh(directory, text);
        const bool isLoaded = ModelMetadata().load(path).ok();
        EXPECT_EQ(saysNoJson(checkManifestText(text)), !isLoaded) << before << value;
        EXPECT_EQ(brokenPromise(text, path), "") << before << value;
        if (isJson != nullptr) {
            EXPECT_EQ(isLoaded, *isJson) << before << value;
        }
    };
    const bool yes = true;
    const bool no = false;
    for (const char* const before : {"\"author\": ", "\"other\": ", "\"other\": [", "\"version\": "}) {
        const bool opens = std::string(before).back() == '[';
        for (const std::string& each : kWellFormed) look(opens ? each + "]" : each, before, &yes);
        for (const std::string& each : kBroken) {
            if (opens && each.empty()) continue;  // an empty list
            look(opens ? each + "]" : each, before, opens && (each == "[" || each == "]") ? nullptr : &no);
        }
        for (const std::string& each : kEither) look(opens ? each + "]" : each, before, nullptr);
    }
    for (const char* const root :
         {"", " ", "1", "\"\"", "[]", "null", "{", "{}", "{}{}", "{} x", "{}\n\n", "\xEF\xBB\xBF{}"}) {
        EXPECT_TRUE(hasErrors(checkManifestText(root))) << root;
        EXPECT_EQ(brokenPromise(root, fresh(directory, root)), "") << root;
    }
}

namespace {

// The same numbers in every run.
std::mt19937 randomFrom(unsigned seed) { return std::mt19937(seed); }

}  // namespace

// Parts of a text give way to others, to nothing or to each other, some thousand times.
TEST(KitCheck, KeepsItsPromisesForMangledManifests) {
    const TempDir directory;
    std::mt19937 random = randomFrom(20);
    const auto below = [&](size_t end) { return random() % end; };
    std::vector<std::string> tokens = {"{",
                                       "}",
                                       "[",
                                       "]",
                                       ",",
                                       ":",
                                       "\"",
                                       "-1",
                                       "0",
                                       "1",
                                       "-2",
                                       "2147483648",
                                       "1.0",
                                       "true",
                                       "null",
                                       "\\u0000",
                                       "\xFF",
                                       "//",
                                       "{}",
                                       "[]",
                                       "\"WinML\"",
                                       "\"CoreML\"",
                                       "\"TFJS\"",
                                       "\"Openvino\"",
                                       "\"tensor\"",
                                       "\"image\"",
                                       "\"int32\"",
                                       "\"shape\"",
                                       "\"encryption\"",
                                       "\"secured_tar\"",
                                       "\"dir\"",
                                       "9223372036854775807",
                                       " "};
    const std::string base = baseManifest();
    const auto partOf = [&](const std::string& text) {
        const size_t from = below(text.size());
        return text.substr(from, below(40));
    };
    size_t sound = 0;
    for (int i = 0; i < 4000; ++i) {
        std::string text = base;
        for (size_t left = 1 + below(3); left > 0; --left) {
            const size_t at = below(text.size());
            const std::string with = below(3) == 0 ? partOf(base) : below(2) == 0 ? "" : tokens[below(tokens.size())];
            text.replace(at, below(2) == 0 ? below(3) : below(30), with);
        }
        EXPECT_EQ(brokenPromise(text, fresh(directory, text)), "") << text;
        sound += checkManifestText(text).empty() ? 1 : 0;
    }
    EXPECT_GT(sound, 100U);  // mostly blanks and other texts
}

// Manifests made of the parts that may be in one, with numbers and texts from everywhere in their ranges.
TEST(KitCheck, KeepsItsPromisesForManifestsMadeByTheRules) {
    const TempDir directory;
    std::mt19937 random = randomFrom(21);
    const auto pick = [&](const std::vector<std::string>& from) { return from[random() % from.size()]; };
    const auto feature = [&](const std::string& name) {
        const std::string flag = pick({"", R"("required": false, )", R"("description": "\"\u00e9\\", )"});
        const std::string type = pick({"bool", "uint8", "int32", "int64", "double", "string"});
        const std::string tensor = R"("featureType": "tensor", "tensor": {"shape": )" +
                                   pick({"[]", "[1]", "[-1, 2147483647]", "[-1, -1]", "[3, -1, 5]", "[0]", "[2, 3]",
                                         "[2147483647, 2147483647]"}) +
                                   R"(, "dataType": ")" +
                                   pick({"bool", "int8", "uint8", "int16", "uint16", "int32", "uint32", "int64",
                                         "uint64", "float16", "float", "double"}) +
                                   "\"}";
        const std::string image =
            R"("featureType": "image", "image": {"height": 4294967295, "width": 1, "pixelType": ")" +
            pick({"one", "BGR", "RGB", "RGBA", "BGRA"}) + "\"}";
        return "{" + flag + R"("name": ")" + name + "\", " +
               pick({tensor, tensor, image, R"("featureType": ")" + type + "\""}) + "}";
    };
    const auto component = [&] {
        return pick({R"({"path": "a/b", "type": "file"})", R"({"path": "a\\b", "type": "dir", "name": "n"})",
                     R"({"type": "memory_stream"})", R"({"path": "./x", "type": "secured_tar", "encryption": {}})",
                     R"({"type": "secured_memory_stream", "encryption": true})", R"({"path": "..", "type": "file"})",
                     R"({"path": "x", "type": "secured_file", "encryption": true, "size": 9223372036854775807})"});
    };
    const auto target = [&] {
        return R"({"components": [)" + component() + R"(], "inputs": [)" + feature("x") + ", " + feature("y") +
               R"(], "outputs": [)" + feature("x") + "]}";
    };
    size_t sound = 0;
    for (int i = 0; i < 2000; ++i) {
        const std::string more = pick({"", R"(, "CoreML": )" + target(), R"(, "TFJS": )" + target()});
        const std::string version = pick({"-2147483648", "2147483647", "0", "-0", "2147483648"});
        const std::string text = R"({"version": )" + version + R"(, "targets": {"WinML": )" + target() + more + "}}";
        EXPECT_EQ(brokenPromise(text, fresh(directory, text)), "") << text;
        sound += checkManifestText(text).empty() ? 1 : 0;
    }
    EXPECT_GT(sound, 100U);
}

TEST(KitCheck, TakesAnyDepthAndAnyNumberOfMistakes) {
    const std::string deep = std::string(500'000, '[');
    EXPECT_TRUE(hasErrors(checkManifestText(deep)));
    EXPECT_TRUE(hasErrors(checkManifestText(R"({"x": )" + deep + std::string(500'000, ']') + "}")));
    std::string many = "{\"a\": 1";
    for (int i = 0; i < 5000; ++i) many += ", \"a\": 1";
    const std::vector<Finding> findings = checkManifestText(many + "}");
    ASSERT_EQ(findings.size(), 1001U);
    EXPECT_EQ(toText(findings.back()),
              "error: There are more of them. Found 4002 more, wanted none. Mend those above, and check again.");
}

namespace {

// A package in a directory, with the base manifest but for one part.
std::string checfiles(const TempDir& directory, const std::string& what, const std::string& with) {
    return print(checkManifest(directory.write("m.json", replaced(baseManifest(), what, with))));
}

}  // namespace

TEST(KitCheck, LooksForTheFiles) {
    const std::string file = "\"net.onnx\",\n                 \"type\": \"file\", \"size\": 3";
    const TempDir directory;
    std::filesystem::create_directories(directory.native() / "Data" / "deep");
    directory.write("net.onnx", "net");
    std::ofstream(directory.native() / "Data" / "deep" / "x.bin") << "x";
    std::string digest;
    ASSERT_TRUE(sha256("net", 3, digest).ok());

    EXPECT_EQ(checfiles(directory, "\"size\": 3", "\"sha256\": \"" + digest + "\""), "");
    EXPECT_EQ(
        checfiles(directory, "\"net.onnx\"", R"("./Data\\deep//x.bin")"),
        "13:42 [/targets/WinML/components/0/size] error: The file has another size. Found 3, wanted 1. Get the file "
        "again, or write its size and digest anew.\n");
    EXPECT_EQ(checfiles(directory, file, R"("Data/deep", "type": "dir")"), "");
    directory.write("net.onnx.protected", "secret");
    EXPECT_EQ(checfiles(directory, file, R"("net.onnx.protected", "type": "secured_file", "encryption": true)"),
              "12:41 [/targets/WinML/components/0/path] warning: What looks like its plain form lies beside the "
              "protected file. Found \"net.onnx\", wanted the protected file alone. Protect the package again, which "
              "removes the plain form, or remove it.\n");
    for (const char* const name : {"net.onnx.17311943250571349521.part", "net.onnx.1.part", "net.part", ".part"}) {
        directory.write(name, "ne");
    }
    EXPECT_EQ(checfiles(directory, "\"size\": 3", "\"size\": 3"),
              "0:0 [] warning: A call that was stopped has left an unfinished file. Found "
              "\"net.onnx.17311943250571349521.part\", wanted no such file. Remove it: it may hold a part of what is "
              "protected.\n");
    std::filesystem::remove(directory.native() / "net.onnx.17311943250571349521.part");
    const std::string wrong(64, '0');
    EXPECT_EQ(checfiles(directory, "\"size\": 3", "\"sha256\": \"" + wrong + "\""),
              "13:44 [/targets/WinML/components/0/sha256] error: The file has another digest. Found " + wrong +
                  ", wanted " + digest + ". Get the file again, or write its size and digest anew.\n");
    const std::string at = "12:41 [/targets/WinML/components/0/path] error: ";
    EXPECT_EQ(
        checfiles(directory, "\"net.onnx\"", "\"ent.onnx\""),
        at +
            "Nothing is there. Found no \"ent.onnx\" in the manifest's directory, wanted the component's file. Write \"net.onnx\".\n");
    EXPECT_EQ(
        checfiles(directory, "\"net.onnx\"", "\"Data/deep/y.bin/z\""),
        at + "Nothing is there. Found no \"y.bin\" in \"Data/deep\", wanted the component's file. Write \"x.bin\".\n");
    EXPECT_EQ(checfiles(directory, "\"net.onnx\"", "\"m.json/net.onnx\""),
              at + "The directory can't be read. Found \"m.json\", wanted a directory that may be listed. Correct the "
                   "path, or the directory's permissions.\n");
    EXPECT_EQ(checfiles(directory, file, R"("data/deep/X.bin", "type": "file")"),
              at + "The path differs from the file's in the case of letters: it is found on Windows alone. Found "
                   "\"data/deep/X.bin\", wanted \"Data/deep/x.bin\". Write \"Data/deep/x.bin\".\n");
    for (const std::string path : {"net.onnx/", "net.onnx/.", "./net.onnx//"}) {
        EXPECT_EQ(
            checfiles(directory, "\"net.onnx\"", '"' + path + '"'),
            at + "A file's path ends in its name. Found \"" + path + "\", wanted \"net.onnx\". Write \"net.onnx\".\n");
    }
    EXPECT_EQ(
        checfiles(directory, "\"net.onnx\"", "\"./m.json\""),
        at + "A component can't be the manifest itself. Found \"./m.json\", wanted another file. Write the path of "
             "the component's file.\n");
    EXPECT_EQ(
        checfiles(directory, "\"net.onnx\"", "\"Data\""),
        at + "It is not what \"type\" says. Found a directory, wanted a file, as for \"file\". Correct the path or "
             "the type.\n");
    EXPECT_EQ(checfiles(directory, R"("type": "file", "size": 3)", R"("type": "dir")"),
              at +
                  "It is not what \"type\" says. Found a file, wanted a directory, as for \"dir\". Correct the path or "
                  "the type.\n");
    EXPECT_EQ(
        checfiles(directory, "\"net.onnx\"", "\"\xFF\""),
        "12:41 [/targets/WinML/components/0/path] warning: The text is not UTF-8. Found \"?\", wanted UTF-8. Save "
        "the manifest as UTF-8.\n" +
            at +
            "Nothing is there. Found no \"?\" in the manifest's directory, wanted the component's file. Write the path of the file, or put the file there.\n");
}

TEST(KitCheck, SpeaksOfTheManifestsOwnPath) {
    const TempDir directory;
    directory.write("net.onnx", "net");
    directory.write("m.json", baseManifest());
    const std::string slashes = directory.native().generic_string() + "/m.json";
    EXPECT_EQ(print(checkManifest(Filepath(slashes))),
              "0:0 [] error: The loader takes another directory for the model's: it counts backslashes alone, on every "
              "system. Found the path " +
                  quotedText(slashes) +
                  ", wanted a backslash between the directory and the "
                  "manifest's name. Build the path with Filepath::append, from the directory and the name.\n");
    EXPECT_EQ(print(checkManifest(directory.path("absent"))).substr(0, 60),
              "0:0 [] error: The manifest can't be read. Found no file at \"");
    EXPECT_EQ(
        print(checkManifest(Filepath("a\\\xFF"))),
        "0:0 [] error: The manifest can't be read. Found a path that is not UTF-8, \"a\\?\", wanted a file. Check the "
        "path, and that the file may be read.\n");
}

namespace {

// Loads with a warning, and refuses to predict with the shapes that it was given.
class FailingModel : public ScriptedModel {
 public:
    using ScriptedModel::ScriptedModel;

 protected:
    MireloStatus onLoad(const std::vector<ModelComponent>& /*components*/) override { return {WARNING, "slow"}; }
    MireloStatus onPredict(const Inputs& inputs, Outputs& /*outputs*/) const override {
        std::string shapes;
        for (const auto& input : inputs) {
            EXPECT_NE(input->asTensor()->buffer(), nullptr);
            for (const int64_t each : input->asTensor()->shape().shapeVector()) shapes += " " + std::to_string(each);
        }
        return {INVALID_SHAPE, shapes.substr(1)};
    }
};

// Its engine divides by an input, or its output has a shape that depends on one.
class NeverZeroModel : public ScriptedModel {
 public:
    explicit NeverZeroModel(STATUS_CODE code) : ScriptedModel("model", MireloModelType::WinML), code_(code) {}

 protected:
    MireloStatus onPredict(const Inputs& /*inputs*/, Outputs& /*outputs*/) const override { return {code_, "rate 0"}; }

 private:
    STATUS_CODE code_;
};

// Takes the key that the test gives.
class KeyedModel : public ScriptedModel {
 public:
    using ScriptedModel::ScriptedModel;

 protected:
    MireloStatus onLoad(const std::vector<ModelComponent>& components) override {
        EXPECT_EQ(components.at(0).encryption.getKey()[0], 1);
        return ScriptedModel::onLoad(components);
    }
};

}  // namespace

TEST(KitCheck, TriesThePackageWithABackend) {
    const TempDir directory;
    directory.write("net.onnx", "net");
    const std::string image = R"(,
                {"name": "photo", "featureType": "image", "image": {"height": 8, "width": 8, "pixelType": "RGB"}})";
    const std::string text = replaced(baseManifest(), image, "");
    const Filepath sound = directory.write("m.json", text);
    const auto model = std::make_shared<ScriptedModel>("model", MireloModelType::WinML);
    EXPECT_EQ(print(checkPackage(sound, model)), "");
    EXPECT_EQ(model->calls, "load 1;predict;unload;");

    const auto onnx = std::make_shared<ScriptedModel>("model", MireloModelType::OnnxRuntime);
    EXPECT_EQ(print(checkPackage(sound, onnx)), "");
    const std::string end = ". Compare the target with the network.\n";
    EXPECT_EQ(print(checkPackage(directory.write("all.json", baseManifest()), model)),
              "0:0 [] error: Making the inputs fails. Found INVALID_TYPE (8): Undefined feature "
              "type for allocating inputs" +
                  end);
    const unsigned char key[16] = {1};
    const Filepath keyed =
        directory.write("keyed.json", replaced(text, R"("file", "size": 3)", R"("secured_file", "encryption": true)"));
    EXPECT_EQ(print(checkPackage(keyed, std::make_shared<KeyedModel>("model", MireloModelType::WinML), key)), "");
    const std::string cannotLoad = "0:0 [] error: Loading fails. Found ";
    EXPECT_EQ(print(checkPackage(sound, model, key)),
              cannotLoad + "MODEL_METADATA_ERROR (12): No component of the target is protected" + end);
    for (const STATUS_CODE code : {ML_FRAMEWORK_ERROR, MODEL_METADATA_ERROR}) {
        EXPECT_EQ(print(checkPackage(sound, std::make_shared<NeverZeroModel>(code))),
                  "0:0 [] warning: Loading works, but a prediction on zeros fails. Found " +
                      describe(MireloStatus(code, "rate 0")) +
                      " The network may refuse zeros, or 1 for an open dimension, or give shapes that depend on "
                      "values. Try real data: mirelo run --input. If that fails, too, compare the target with the "
                      "network.\n");
    }
    model->answer = {ML_FRAMEWORK_ERROR, "Node \"a\": no weights"};
    EXPECT_EQ(print(checkPackage(sound, model)), cannotLoad + "ML_FRAMEWORK_ERROR (13): Node \"a\": no weights" + end);
    model->raises = true;
    EXPECT_EQ(print(checkPackage(sound, model)), cannotLoad + "UNKNOWN_ERROR (2): raised by load 1" + end);
    EXPECT_EQ(print(checkPackage(sound, std::make_shared<FailingModel>("model", MireloModelType::WinML))),
              "0:0 [] warning: Loading gives a warning. Found WARNING (27): slow" + end +
                  "0:0 [] error: A prediction on zeros fails. Found INVALID_SHAPE (17): 1 64 1 64" + end);
    EXPECT_EQ(checkPackage(sound, nullptr).size(), 1U);
    model->calls.clear();
    EXPECT_TRUE(hasErrors(checkPackage(directory.path("absent"), model)));
    EXPECT_EQ(model->calls, "");
}
