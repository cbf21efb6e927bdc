#pragma once

#include "engine.h"
#include "network_file.h"
#include "operator_domain.h"

#include <TarnoMirelo/kit/ports.h>
#include <TarnoMirelo/onnxruntime.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace TarnoMirelo::OnnxRuntime {

class Cache;
class Log;

/// An input or output as the network has it.
struct NetworkValue {
    std::string name;
    std::string kind = "a tensor";                                             // or another kind of value, "a sequence"
    ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;  // also of what is no tensor
    std::optional<std::vector<int64_t>> shape;  // -1 for an open dimension; nothing where not even the rank is known
    bool isOptional = false;                    // the network has a constant for it
};

/// The engine's network together with the target that describes it. Const operations may overlap; what the engine
/// raises comes out as `EngineFailure`.
class Network {
 public:
    /// Has the engine load a network, and compares it with the target. Raises what the comparison finds.
    /// @param cache  where the optimised form is kept; null for nowhere
    Network(const NetworkFile& file, const ModelTarget& target, const Options& options, OrtEP provider,
            const Cache* cache, std::shared_ptr<const Log> log);

    /// Has the engine load a network without a target. Raises what keeps its inputs and outputs from being described.
    static NetworkDescription describe(const NetworkFile& file, const Log& log);

    /// The element types and shapes are the target's, and where that leaves them open, the network's.
    const Kit::InputPorts& inputs() const { return inputs_; }
    const Kit::OutputPorts& outputs() const { return outputs_; }
    /// Whether the network has a constant where the input is left out.
    bool isOptional(size_t input) const { return isOptional_[input]; }

    /// Whether an output is also an input, which the engine hands out itself instead of writing it where the output
    /// points.
    bool handsInputsOut() const { return handsInputsOut_; }

    /// Rows that `predict` and `bind` expect in one tensor.
    int64_t batchSize() const { return batchSize_; }
    /// Raises `InvalidArgumentsException` for no rows, or more than can be counted; `InvalidOperationException` where
    /// the network can't take so many at once.
    void setBatchSize(unsigned int batchSize);
    /// Whether the network leaves the number of rows open, and the target's shapes begin with one. That tells nothing
    /// of whether a row's result depends on the others.
    bool hasRows() const { return hasRows_; }

    /// Whether the network was loaded in the form that the cache keeps.
    bool isFromCache() const { return isFromCache_; }

    const OrtRunOptions* runOptions() const { return runOptions_.get(); }

    /// What the engine takes for this network, in bytes, as it was measured last.
    uint64_t memory() const { return memory_; }

    /// The network as the engine has loaded it, once of `Options::copies` times. Threads that run different copies
    /// write to no cache line of each other's.
    struct alignas(64) Copy {
        Owned<OrtSession> session;
        Owned<OrtAllocator> arena;                  // the session's; empty where the engine tells nothing of it
        mutable std::atomic<uint64_t> inArena = 0;  // bytes, as they were measured last
        mutable std::atomic<std::chrono::steady_clock::time_point> measured{};
        mutable std::atomic<uint64_t> largestInputs = 0;
        mutable std::atomic<int> running = 0;
        mutable std::atomic<int> mostRunning = 0;
    };
    /// The copy for the next binding, one after the other.
    const Copy& nextCopy() const;

    /// Lives for the time of a run. The engine may take more memory when the inputs are larger than those of any run of
    /// the copy before, when more runs overlap than ever before, or when values of the inputs make the tensors in
    /// between larger. So the memory is measured after the first two, and after any run a millisecond after the last
    /// measurement.
    class Run {
     public:
        /// Of a copy that no other run uses, where there is one.
        Run(const Network& network, uint64_t inputBytes);
        Run(const Network& network, const Copy& copy, uint64_t inputBytes);
        Run(const Run&) = delete;
        Run& operator=(const Run&) = delete;
        ~Run();

        OrtSession* session() const { return copy_.session.get(); }

     private:
        const Network& network_;
        const Copy& copy_;
        bool mayGrow_ = false;
    };

 private:
    struct Opened {
        OperatorDomains operators;
        std::vector<Owned<OrtSession>> sessions;
        bool isFromCache;
        uint64_t weightBytes;
        uint64_t bytesBesideWeights;
        std::vector<NetworkValue> inputs;
        std::vector<NetworkValue> outputs;
    };

    Network(Opened opened, const ModelTarget& target, std::shared_ptr<const Log> log);
    static Opened open(const NetworkFile& file, const Options& options, OrtEP provider, const Cache* cache,
                       const Log& log);
    const Copy& freeCopy() const;
    static uint64_t arenaBytes(const Copy& copy);
    void measureMemory(const Copy& copy) const;

    std::shared_ptr<const Log> log_;  // it and the operators outlive the sessions
    OperatorDomains operators_;
    std::vector<Copy> copies_;
    Owned<OrtRunOptions> runOptions_;
    Kit::InputPorts inputs_;
    Kit::OutputPorts outputs_;
    std::vector<bool> isOptional_;
    bool handsInputsOut_ = false;
    bool hasRows_ = true;
    bool isFromCache_ = false;
    int64_t batchSize_ = 1;
    uint64_t outsideArenas_ = 0;  // what the engine takes beside the arenas of all copies
    mutable std::atomic<uint64_t> memory_ = 0;
    mutable std::atomic<size_t> nextCopy_ = 0;
};

}  // namespace TarnoMirelo::OnnxRuntime
