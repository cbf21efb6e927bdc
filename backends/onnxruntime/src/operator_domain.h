#pragma once

#include "onnx_outline.h"

#include <TarnoMirelo/status.h>

#include <memory>
#include <onnxruntime_c_api.h>
#include <optional>
#include <string>
#include <vector>

namespace TarnoMirelo::OnnxRuntime {

/// The host's operators that a network uses, in the engine's form. A session that they were added to needs them as long
/// as it lives.
class OperatorDomains {
 public:
    /// Looks for each operator of the network in the finalised registry. Factories of other operators are not called.
    /// Raises `ModelMetaDataException` for a node that leaves out an input.
    explicit OperatorDomains(const OnnxOutline& outline);
    OperatorDomains(OperatorDomains&& other) noexcept;
    OperatorDomains& operator=(OperatorDomains&& other) noexcept;
    ~OperatorDomains();

    bool empty() const { return domains_.empty(); }
    void addTo(OrtSessionOptions& options) const;
    /// Raises what an operator raised when it was asked for its outputs, after a session was made or could not be made.
    void raiseFailure() const;

 private:
    struct Domain;

    std::vector<std::unique_ptr<Domain>> domains_;
};

/// Has the engine load the registry's libraries of operators for a session.
void addOperatorLibraries(OrtSessionOptions& options);

/// Whether a network may be computed by operators of the host's, or of its libraries, which don't say what they have.
bool usesHostOperators(const OnnxOutline& outline);

/// What an operator of the host answered or raised, which comes back as the end of the engine's text; nothing where the
/// failure is another one.
std::optional<MireloStatus> operatorStatusIn(const std::string& engineText);

}  // namespace TarnoMirelo::OnnxRuntime
