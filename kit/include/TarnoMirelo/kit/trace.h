#pragma once

/// @file
/// What a model's operations take, seen from outside: a model around a model, which tells a sink of each operation.

#include <TarnoMirelo/model.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace TarnoMirelo::Kit {

/// An operation that has ended. What it refers to is borrowed for the call of the sink.
struct TraceEvent {
    const char* operation;                        ///< "load", "predict", ...: the name of the operation, constant text
    const std::string& modelName;                 ///< as the model's `getName` answers
    std::chrono::steady_clock::time_point start;  ///< when the inner model was called
    std::chrono::nanoseconds duration;            ///< until it returned or raised
    const MireloStatus& status;                   ///< what the operation returned, or what it raised as a status
    uint64_t memory;  ///< of the model's record after the operation, in bytes; 0 while it is not registered
};

/// Where events go.
class TraceSink {
 public:
    virtual ~TraceSink();
    /// Called at the end of each operation, on its thread; calls overlap where operations do. What it raises is
    /// dropped: a failing sink must not fail the caller.
    virtual void record(const TraceEvent& event) = 0;

 protected:
    TraceSink() = default;
    /// @{

    /// Copies nothing: a sink's state is in the class that derives from it.
    TraceSink(const TraceSink&) = default;
    TraceSink& operator=(const TraceSink&) = default;
    /// @}
};

/// A model that passes everything on to another one and tells a sink about it. Hosts and managers use it in that one's
/// place; without a sink it costs a few nanoseconds.
///
/// Statuses, outputs, bindings, exceptions and the name are the inner model's. Usage properties are those that the
/// inner model has stamped, for the first stamp wins. Memory that the inner model reports goes to this model's record.
/// A cached file that the inner model has after a load, or when the cache was asked about, is this model's too.
///
/// Wrap a model before it is loaded and registered, and use only the wrapper from then on: model type, target and root
/// directory are adopted at construction and by `load`, as in every model, and so components in memory are there twice.
///
/// Threads: as the inner model; its operations may overlap here where they may there.
class TracedModel : public MireloModel {
 public:
    /// Makes a model around another one.
    /// @param inner  kept; null raises `InvalidArgumentsException`
    /// @param sink   kept; null for none
    static std::shared_ptr<TracedModel> wrap(std::shared_ptr<MireloModel> inner,
                                             std::shared_ptr<TraceSink> sink = nullptr);
    ~TracedModel() override;

    const std::string& getName() const override;
    /// The model that does the work; valid as long as this one.
    const std::shared_ptr<MireloModel>& inner() const { return inner_; }

 protected:
    MireloStatus onPredict(const Inputs& inputs, Outputs& outputs) const override;
    MireloStatus onPredictBatch(const Inputs& inputs, Outputs& outputs) const override;
    MireloStatus onBind(const Inputs& inputs, Outputs& outputs, std::shared_ptr<MireloBinding>& binding) const override;
    MireloStatus onEvaluate(std::shared_ptr<MireloBinding>& binding) const override;
    MireloStatus onLoad(const std::vector<ModelComponent>& components) override;
    MireloStatus onUnload() override;
    MireloStatus onSetBatchSize(const unsigned int& batchSize) override;
    MireloCacheStatus onQueryCacheStatus(const Components& components) override;

 private:
    // `device` is what the base is made with: a device of either kind, or a model type.
    template <typename DeviceOrType>
    TracedModel(std::shared_ptr<MireloModel> inner, std::shared_ptr<TraceSink> sink, DeviceOrType device);

    template <typename Work>
    MireloStatus traced(const char* operation, const Work& work) const;
    void tell(const char* operation, std::chrono::steady_clock::time_point start,
              const MireloStatus& status) const noexcept;
    void shareRecord() const;

    std::shared_ptr<MireloModel> inner_;
    std::shared_ptr<TraceSink> sink_;
    mutable std::atomic<const ModelRuntimeStatus*> shared_{nullptr};  // the record that the inner model has from here
    mutable std::mutex sharing_;
};

/// Writes events to a file in the JSON array form of the Trace Event Format, as "Trace Event Format" of the Chromium
/// project's tracing tools describes it
/// (https://docs.google.com/document/d/1CvAClvFfyA5R-PhYUmn5OOQtYMH4h6I0nSsKchNAySU). Each event is handed to the
/// system at once, and trace viewers do without the array's end: what a process did before it crashed is there.
///
/// Each operation is a complete event ("ph": "X") named after it, with the model's name as its category, a number for
/// its thread in the order of appearance, and the status in its arguments; the memory of each model is a counter ("C").
/// Times are microseconds since the sink was made. Bytes of names and descriptions that are not UTF-8 are replaced.
class ChromeTraceFile : public TraceSink {
 public:
    /// Creates the file, or empties it. `status` says whether that worked; without a file the events are dropped.
    /// Raises `std::range_error` for a path that is not UTF-8.
    explicit ChromeTraceFile(const Filepath& path);
    /// As `close`.
    ~ChromeTraceFile() override;
    ChromeTraceFile(const ChromeTraceFile&) = delete;
    ChromeTraceFile& operator=(const ChromeTraceFile&) = delete;

    /// Locked: events of several threads are written one after the other.
    void record(const TraceEvent& event) override;
    /// Ends the array and closes the file. Further events are dropped.
    /// @return as `status`
    MireloStatus close();
    /// `SUCCESS`, or `FILE_ERROR` with the path when the file could not be opened or something not written.
    MireloStatus status() const;

 private:
    struct File;

    std::unique_ptr<File> file_;
};

}  // namespace TarnoMirelo::Kit
