#pragma once

// What can be wrong with the reference backend, each with the test that is to fail.
#define PLANTED_FAULTS(FAULT)                                          \
    FAULT(AnswersUnloaded, "Reference.NotLoaded")                      \
    FAULT(TakesDamagedFiles, "Reference.DamagedComponent")             \
    FAULT(TakesMissingFileForMetadata, "Reference.MissingComponent")   \
    FAULT(FollowsEveryPath, "Reference.ComponentOutsideRoot")          \
    FAULT(TakesEveryKind, "Reference.ComponentOfUnknownKind")          \
    FAULT(TrustsTheNetwork, "Reference.TargetThatDoesNotFit")          \
    FAULT(TakesTargetsInputOrder, "Reference.TargetInAnotherOrder")    \
    FAULT(TakesTargetsOutputOrder, "Reference.TargetInAnotherOrder")   \
    FAULT(TakesOtherNames, "Reference.TargetOfOtherNames")             \
    FAULT(ReadsMemoryFromFile, "Reference.ComponentsOfEachKind")       \
    FAULT(KeepsFirstNetwork, "Reference.SecondLoad")                   \
    FAULT(KeepsNetworkOfFailedLoad, "Reference.FailedLoad")            \
    FAULT(RefusesSecondUnload, "Reference.UnloadTwice")                \
    FAULT(StampsBatches, "Reference.UsageProperties")                  \
    FAULT(TransposesWeights, "Reference.Predictions")                  \
    FAULT(ComputesInFloats, "Reference.Predictions")                   \
    FAULT(ClipsInfinities, "Reference.Predictions")                    \
    FAULT(ReversesNewOutputs, "Reference.Predictions")                 \
    FAULT(ReusesNewOutputs, "Reference.RepeatedPrediction")            \
    FAULT(RemembersInputs, "Reference.RepeatedPrediction")             \
    FAULT(LendsItsMemory, "Reference.ResultsOutliveTheModel")          \
    FAULT(LendsMemoryToBindings, "Reference.ResultsOutliveTheModel")   \
    FAULT(WritesIntoInputs, "Reference.InputsStay")                    \
    FAULT(WritesIntoBoundInputs, "Reference.InputsStay")               \
    FAULT(WritesIntoInputsForGiven, "Reference.InputsStay")            \
    FAULT(GoesByOrder, "Reference.InputsInAnyOrder")                   \
    FAULT(RefusesVariableInputs, "Reference.AllocatedInputs")          \
    FAULT(IgnoresDefault, "Reference.AbsentInput")                     \
    FAULT(WantsAllInputsOfBatch, "Reference.AbsentInput")              \
    FAULT(AnswersNothing, "Reference.NeededInput")                     \
    FAULT(ReinterpretsElements, "Reference.ElementTypes")              \
    FAULT(IgnoresNullInput, "Reference.NullInput")                     \
    FAULT(InventsMissingInput, "Reference.MissingInput")               \
    FAULT(IgnoresUnknownInput, "Reference.UnknownInput")               \
    FAULT(TakesLastOfTwoInputs, "Reference.InputGivenTwice")           \
    FAULT(RaisesForKind, "Reference.InputOfWrongKind")                 \
    FAULT(TakesNoTensorForOperation, "Reference.InputWithoutTensor")   \
    FAULT(ReadsNoBuffer, "Reference.InputWithoutBuffer")               \
    FAULT(ReadsDeviceMemory, "Reference.InputOnDevice")                \
    FAULT(ConvertsEveryType, "Reference.InputOfWrongType")             \
    FAULT(ReadsFloatsAsIntegers, "Reference.InputOfWrongType")         \
    FAULT(ConvertsDoublesOfRows, "Reference.InputOfWrongType")         \
    FAULT(ReshapesInputs, "Reference.InputOfWrongShape")               \
    FAULT(ChecksFirstInput, "Reference.InputOfWrongShape")             \
    FAULT(ChecksNoOptionalInput, "Reference.InputOfWrongShape")        \
    FAULT(ReshapesOpenInputs, "Reference.InputOfWrongShape")           \
    FAULT(PadsRows, "Reference.InputOfWrongShape")                     \
    FAULT(NamesNothing, "Reference.MissingInput")                      \
    FAULT(SaysNothing, "Reference.NullInput")                          \
    FAULT(ClearsOutputsOnFailure, "Reference.MissingInput")            \
    FAULT(WipesOutputsFirst, "Reference.MissingInput")                 \
    FAULT(ReplacesOutputs, "Reference.OutputsInPlace")                 \
    FAULT(SortsOutputs, "Reference.OutputsInAnyOrder")                 \
    FAULT(WantsAllOutputs, "Reference.SomeOutputs")                    \
    FAULT(WantsBuffers, "Reference.OpenOutputs")                       \
    FAULT(IgnoresNullOutput, "Reference.NullOutput")                   \
    FAULT(IgnoresUnknownOutput, "Reference.UnknownOutput")             \
    FAULT(IgnoresSecondOutput, "Reference.OutputGivenTwice")           \
    FAULT(IgnoresNumberAsOutput, "Reference.OutputOfWrongKind")        \
    FAULT(IgnoresOutputWithoutTensor, "Reference.OutputWithoutTensor") \
    FAULT(IgnoresOutputOnDevice, "Reference.OutputOnDevice")           \
    FAULT(IgnoresOutputOfOtherType, "Reference.OutputOfWrongType")     \
    FAULT(IgnoresOutputOfOtherShape, "Reference.OutputOfWrongShape")   \
    FAULT(ChecksFirstOutput, "Reference.OutputOfWrongShape")           \
    FAULT(ChecksNoOpenOutput, "Reference.OutputOfWrongShape")          \
    FAULT(ShapesBeforeChecking, "Reference.OutputWithoutBuffer")       \
    FAULT(IgnoresOutputOverInput, "Reference.OutputOverInput")         \
    FAULT(IgnoresOutputOverOutput, "Reference.OutputOverOutput")       \
    FAULT(ComparesStartsWithInputs, "Reference.OutputOverInput")       \
    FAULT(ComparesStartsOfOutputs, "Reference.OutputOverOutput")       \
    FAULT(EvaluatesOnce, "Reference.Evaluations")                      \
    FAULT(BindsInputsByPlace, "Reference.BoundInAnyOrder")             \
    FAULT(BindsOutputsByPlace, "Reference.BoundInAnyOrder")            \
    FAULT(BindsAllOutputsOnly, "Reference.BoundInAnyOrder")            \
    FAULT(BindsBuffersOnly, "Reference.OpenBoundOutputs")              \
    FAULT(ComputesAtBind, "Reference.InputsThatChange")                \
    FAULT(KeepsOneBinding, "Reference.SeveralBindings")                \
    FAULT(ReusesBoundOutputs, "Reference.SeveralBindings")             \
    FAULT(BorrowsBoundTensors, "Reference.BindingKeepsWhatItBinds")    \
    FAULT(DropsBindingOnFailure, "Reference.FailedBind")               \
    FAULT(TakesNullBinding, "Reference.NullBinding")                   \
    FAULT(TakesBindingOfOtherModel, "Reference.ForeignBinding")        \
    FAULT(TakesBindingOfEarlierLoad, "Reference.BindingOfEarlierLoad") \
    FAULT(IgnoresMoves, "Reference.MovedTensor")                       \
    FAULT(WatchesFirstTensors, "Reference.MovedTensor")                \
    FAULT(BindsNothing, "Minimal.NoBindings")                          \
    FAULT(StacksWithoutPromise, "Reference.Batches")                   \
    FAULT(ReversesStack, "Reference.StackedBatches")                   \
    FAULT(GoesByOrderInBatches, "Reference.BatchInputByInput")         \
    FAULT(ReplacesOutputsOfBatch, "Reference.BatchInPlace")            \
    FAULT(WantsBuffersOfBatch, "Reference.BatchInPlace")               \
    FAULT(FillsBatchesByPlace, "Reference.BatchOutputsInAnyOrder")     \
    FAULT(WantsAllOutputsOfBatch, "Reference.BatchOutputsInAnyOrder")  \
    FAULT(TakesEmptyBatch, "Reference.EmptyBatch")                     \
    FAULT(TakesUnevenBatch, "Reference.UnevenBatch")                   \
    FAULT(IgnoresUnevenOutputs, "Reference.UnevenOutputs")             \
    FAULT(RunsRowsUnchecked, "Reference.InputOfWrongShape")            \
    FAULT(RunsRowsCheckedAlone, "Reference.RowOverAnother")            \
    FAULT(LetsRowsShareOutputs, "Reference.RowOverAnother")            \
    FAULT(RaisesForNullRow, "Reference.NullInput")                     \
    FAULT(IgnoresUnknownRows, "Reference.RowsWithUnknownInput")        \
    FAULT(InventsMissingRows, "Reference.RowsWithoutInput")            \
    FAULT(KeepsBatchSize, "Reference.BatchSize")                       \
    FAULT(FillsFirstRow, "Reference.BatchSize")                        \
    FAULT(IgnoresBatchSize, "Reference.OtherThanTheBatchSize")         \
    FAULT(BindsAnyRows, "Reference.OtherThanTheBatchSize")             \
    FAULT(TakesBatchSizeOfZero, "Reference.BatchSizeOfZero")           \
    FAULT(SaysNothingOfBatchSize, "Minimal.NoBatchSize")               \
    FAULT(ReportsAtLoadOnly, "Reference.MemoryAfterRegistration")      \
    FAULT(AddsWithEachLoad, "Reference.MemoryOfLoad")                  \
    FAULT(AddsWithEachBatch, "Reference.MemoryOfLoad")                 \
    FAULT(AddsWithEachBinding, "Reference.MemoryOfLoad")               \
    FAULT(ClearsRecord, "Reference.MemoryOfUnload")                    \
    FAULT(KeepsReportOfFailedLoad, "Reference.MemoryOfFailedLoad")     \
    FAULT(ReportsOnce, "Reference.MemoryOfNewRecord")                  \
    FAULT(ReportsOfAllModels, "Reference.MemoryOfSeveralModels")       \
    FAULT(HoldsItself, "Reference.EndOfTheModel")                      \
    FAULT(HoldsItselfOnceBound, "Reference.EndOfTheModel")             \
    FAULT(SharesOneEngine, "Reference.DistinctModels")                 \
    FAULT(RefusesOverlap, "Reference.OverlappingOperations")           \
    FAULT(SharesScratch, "Reference.OverlappingOperations")

namespace TarnoMirelo {

#define ENUMERATOR(name, test) name,
enum class Fault { None, PLANTED_FAULTS(ENUMERATOR) };
#undef ENUMERATOR

struct PlantedFault {
    Fault fault;
    const char* name;
    const char* test;
};

#define TABLE_ROW(name, test) {Fault::name, #name, test},
inline constexpr PlantedFault kPlantedFaults[] = {PLANTED_FAULTS(TABLE_ROW)};
#undef TABLE_ROW

}  // namespace TarnoMirelo
