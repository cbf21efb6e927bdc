#pragma once

#include <vector>

namespace TarnoMirelo {

/// What can be wrong with the reference backend, by the row of the contract that is to catch it.
enum class Fault {
    None,
    // Loading
    AnswersUnloaded,
    TakesDamagedFiles,
    TakesMissingFileForMetadata,
    FollowsEveryPath,
    TakesEveryKind,
    ReadsMemoryFromFile,
    KeepsFirstNetwork,
    KeepsNetworkOfFailedLoad,
    RefusesSecondUnload,
    StampsBatches,
    // Predictions
    TransposesWeights,
    ComputesInFloats,
    ReversesNewOutputs,
    ReusesNewOutputs,
    LendsItsMemory,
    WritesIntoInputs,
    GoesByOrder,
    IgnoresDefault,
    ReinterpretsElements,
    IgnoresNullInput,
    InventsMissingInput,
    IgnoresUnknownInput,
    TakesLastOfTwoInputs,
    RaisesForKind,
    TakesNoTensorForOperation,
    ReadsNoBuffer,
    ReadsDeviceMemory,
    ConvertsEveryType,
    ReshapesInputs,
    NamesNothing,
    SaysNothing,
    ClearsOutputsOnFailure,
    WipesOutputsFirst,
    // Outputs
    ReplacesOutputs,
    SortsOutputs,
    WantsAllOutputs,
    WantsBuffers,
    IgnoresNullOutput,
    IgnoresUnknownOutput,
    IgnoresSecondOutput,
    IgnoresNumberAsOutput,
    IgnoresOutputWithoutTensor,
    IgnoresOutputOnDevice,
    IgnoresOutputOfOtherType,
    IgnoresOutputOfOtherShape,
    ShapesBeforeChecking,
    IgnoresOutputOverInput,
    IgnoresOutputOverOutput,
    // Bindings
    EvaluatesOnce,
    ComputesAtBind,
    KeepsOneBinding,
    BorrowsBoundTensors,
    DropsBindingOnFailure,
    TakesNullBinding,
    TakesBindingOfOtherModel,
    TakesBindingOfEarlierLoad,
    IgnoresMoves,
    BindsNothing,
    // Batches
    StacksWithoutPromise,
    ReversesStack,
    GoesByOrderInBatches,
    ReplacesOutputsOfBatch,
    TakesEmptyBatch,
    TakesUnevenBatch,
    IgnoresUnevenOutputs,
    RunsRowsUnchecked,
    RunsRowsCheckedAlone,
    RaisesForNullRow,
    IgnoresUnknownRows,
    InventsMissingRows,
    KeepsBatchSize,
    IgnoresBatchSize,
    TakesBatchSizeOfZero,
    SaysNothingOfBatchSize,
    // Memory
    ReportsAtLoadOnly,
    AddsWithEachLoad,
    ClearsRecord,
    KeepsReportOfFailedLoad,
    ReportsOnce,
    ReportsOfAllModels,
    HoldsItself,
    // Threads
    SharesOneEngine,
    RefusesOverlap,
};

struct PlantedFault {
    Fault fault;
    const char* name;
    const char* test;  ///< the one that is to fail
};

const std::vector<PlantedFault>& plantedFaults();

}  // namespace TarnoMirelo
