#include "support/failing_new.h"
#include "support/text.h"

#include <TarnoMirelo/TarnoMirelo.h>
#include <TarnoMirelo/opencv.h>

#include <gtest/gtest.h>

namespace TarnoMirelo {
namespace {

TEST(OpenCvMemory, LeavesTheOutputsAloneWhereItRunsOut) {
    ModelMetadata metadata;
    metadata.load(Filepath(DIGITS_MODEL).append(Filepath("manifest.json")));
    const auto components = metadata.getModelCompoents(MireloModelType::WinML);
    MireloConfig config;
    config.SetLogger(std::make_shared<LogProcessorContainer>());  // silent
    const auto model = std::make_shared<OpenCv::Model>("m", MireloModelType::WinML, config);
    ASSERT_EQ(text(model->load(components)), kSuccess);
    MireloModel::Outputs given;
    ASSERT_EQ(text(model->allocateInputs(given)), kSuccess);
    const MireloModel::Inputs inputs(given.begin(), given.end());
    given.clear();
    for (const char* const list : {"empty", "given"}) {
        MireloModel::Outputs outputs;
        int allocations = 0;
        for (bool failed = true; failed; ++allocations) {
            model->load(components);  // so that nothing is prepared
            outputs = given;
            failNewAfter(allocations);
            const MireloStatus status = model->predict(inputs, outputs);
            failed = stopFailingNew();
            const std::string said = text(status);
            const bool isTold =
                said == "2: std::bad_alloc" || said.rfind("18: Output \"probabilities\": no memory", 0) == 0;
            EXPECT_TRUE(failed ? isTold : status.ok()) << said << ", " << allocations << ", " << list;
            EXPECT_TRUE(!failed || outputs == given) << allocations << ", " << list;
        }
        EXPECT_EQ(outputs.size(), 1U);
        EXPECT_GT(allocations, 20);
        given = outputs;
    }
}

}  // namespace
}  // namespace TarnoMirelo
