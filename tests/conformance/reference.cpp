// The suite itself: a backend without a fault passes, one with any of the planted faults fails the row that it is for.

#include "package.h"
#include "reference_model.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/conformance.h>
#include <TarnoMirelo/kit/texts.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <string>

using namespace TarnoMirelo;

namespace {

Fault planted = Fault::None;

Conformance::MakeModel makerOf(const ReferenceModel::Traits& traits) {
    return [traits](const std::string& name, const std::shared_ptr<Device>& device) {
        return std::make_shared<ReferenceModel>(name, device, traits, planted);
    };
}

Conformance::Backend describe() {
    ReferenceModel::Traits stacking;
    stacking.stacks = true;
    Conformance::Backend backend;
    backend.makeModel = makerOf({});
    backend.makeStackingModel = makerOf(stacking);
    backend.packages = {"identity", "sum", "two_outputs", "variable_shape", "int64", "lstm", "optional_input", "gemm"};
    backend.floatInputTypes = {DataType::Float, DataType::Int32};
    backend.mayOverlap = true;
    return backend;
}

// As little as a backend may do.
Conformance::Backend describeMinimal() {
    ReferenceModel::Traits minimal;
    minimal.binds = false;
    minimal.setsBatchSize = false;
    Conformance::Backend backend = describe();
    backend.makeModel = makerOf(minimal);
    backend.makeStackingModel = nullptr;
    backend.packages = {"gemm"};
    backend.componentKinds = {ComponentKind::MemoryStream};
    backend.binds = false;
    backend.setsBatchSize = false;
    return backend;
}

MIRELO_CONFORMANCE(Reference, describe);
MIRELO_CONFORMANCE(Minimal, describeMinimal);

TEST(Contract, EachRowCatchesAFault) {
    std::set<std::string> caught;
    for (const PlantedFault& fault : kPlantedFaults) {
        const std::string test = fault.test;
        caught.insert(test.substr(test.find('.') + 1));
    }
    std::set<std::string> rows;
    for (const Conformance::Family& family : Conformance::contract()) {
        for (const Conformance::Row& row : family.rows) rows.insert(row.name);
    }
    EXPECT_EQ(caught, rows);
}

// The page's headings and rows are the contract's.
TEST(Contract, IsWhatThePageShows) {
    std::string wanted;
    for (const Conformance::Family& family : Conformance::contract()) {
        wanted += std::string("## ") + family.name + "\n";
        for (const Conformance::Row& row : family.rows) {
            wanted += list("|", row.name, "|", row.situation, "|", "`" + Kit::toText(row.status) + "`", "|", row.wanted,
                           "|\n");
        }
    }
    std::string shown;
    std::ifstream page(CONTRACT_PAGE);
    for (std::string line; std::getline(page, line);) {
        const bool isRow = line.rfind("| ", 0) == 0 && line.rfind("| row |", 0) != 0;
        if (isRow || line.rfind("## ", 0) == 0) shown += line + "\n";
    }
    EXPECT_EQ(shown, wanted);
}

// A word that is read for something else would let wrong results pass.
TEST(Packages, ExpectedResultsAreReadToTheLetter) {
    const std::pair<const char*, const char*> cases[] = {
        {"rows independent of each other", "wanted is \"rows independent\""},
        {"case of two words", "wanted is \"case\" and a name of one word"},
        {"input source float [1,3] 1,5 2;7 3x", "\"1,5\" is no float"},
        {"input source float [1,3] 1 2 3x", "\"3x\" is no float"},
        {"input source float [1,3] 1 2 1e39", "\"1e39\" is no float"},
        {"input source float16 [1] 65536", "\"65536\" is no float16"},
        {"input source double [1] 1e400", "\"1e400\" is no double"},
        {"input source int64 [2] 1.9 -2.7", "\"1.9\" is no int64"},
        {"input source uint8 [2] 255 256", "\"256\" is no uint8"},
        {"input source uint64 [1] -1", "\"-1\" is no uint64"},
        {"input source bool [2] 1 2", "\"2\" is no bool"},
        {"input source float [1,x] 1", "\"[1,x]\" is no shape, wanted is one as in [1,3]"},
        {"input source float [1,] 1", "\"[1,]\" is no shape, wanted is one as in [1,3]"},
        {"input source float [-1] 1", "\"[-1]\" is no shape, wanted is one as in [1,3]"},
    };
    const TempDir folder;
    std::filesystem::copy(Conformance::suppliedPackages() + "/identity/manifest.json", folder.native());
    for (const auto& [line, wanted] : cases) {
        folder.write("expected.txt", list("case first\n", line, "\n"));
        const std::string found =
            raised([&] { Conformance::readPackage(folder.native().string(), ".", MireloModelType::WinML); });
        EXPECT_EQ(found.substr(std::min(found.find(", line "), found.size())), list(", line 2:", wanted));
    }
}

}  // namespace

// With "--faults", writes the name of each planted fault and of the test that is to catch it; "--fault=<name>" plants
// one.
int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const std::string argument = argc > 1 ? argv[1] : "";
    for (const PlantedFault& fault : kPlantedFaults) {
        if (argument == "--faults") std::cout << fault.name << ' ' << fault.test << '\n';
        if (argument == std::string("--fault=") + fault.name) planted = fault.fault;
    }
    return argument == "--faults" ? 0 : RUN_ALL_TESTS();
}
