#include "trial.h"

#include <TarnoMirelo/kit/texts.h>

#include <utility>

namespace TarnoMirelo::Conformance {
namespace {

class RowTest : public testing::Test {
 public:
    RowTest(Backend (*describe)(), const Row& row) : describe_(describe), row_(row) {}

    void TestBody() override {
        const std::string wanted = std::string("Row ") + row_.name + ": " + row_.situation + "\nwanted is " +
                                   Kit::toText(row_.status) + "; " + row_.wanted;
        SCOPED_TRACE(wanted);
        try {
            const Backend backend = describe_();
            Trial trial(backend, row_);
            row_.check(trial);
        } catch (const std::exception& exception) {
            ADD_FAILURE() << "Raised: " << exception.what();
        } catch (...) {
            ADD_FAILURE() << "Raised: something that is no exception";
        }
    }

 private:
    Backend (*describe_)();
    const Row& row_;
};

}  // namespace

std::string suppliedPackages() { return SDK_CORE_CONFORMANCE_PACKAGES; }

const std::vector<Family>& contract() {
    static const std::vector<Family> families = {
        {"Loading", loadingRows()},  {"Predictions", predictionRows()}, {"Outputs", outputRows()},
        {"Bindings", bindingRows()}, {"Batches", batchRows()},          {"Memory", memoryRows()},
        {"Threads", threadRows()},
    };
    return families;
}

bool registerRows(const char* name, Backend (*describe)(), const char* file, int line) noexcept {
    for (const Family& family : contract()) {
        for (const Row& row : family.rows) {
            const auto make = [describe, &row]() -> testing::Test* {
                return std::make_unique<RowTest>(describe, row).release();
            };
            testing::RegisterTest(name, row.name, nullptr, nullptr, file, line, make);
        }
    }
    return true;
}

}  // namespace TarnoMirelo::Conformance
