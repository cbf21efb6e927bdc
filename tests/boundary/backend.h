#pragma once

// A backend in a shared library of its own, as a host sees it.

#include <TarnoMirelo/model.h>

#if defined(BOUNDARY_BUILDING)
#define BOUNDARY_API MIRELO_EXPORT_SYMBOL
#else
#define BOUNDARY_API MIRELO_IMPORT_SYMBOL
#endif

namespace TarnoMirelo::Boundary {

/// A model that reads its component through the host's `files` and adds the number in it to its input, on a "device".
BOUNDARY_API std::shared_ptr<MireloModel> makeModel(const std::string& name, std::shared_ptr<FileUtils> files);
/// A tensor of the device, which has no buffer on the host's side.
BOUNDARY_API std::shared_ptr<DeviceTensor> makeTensor(const TensorShape& shape);
/// Has the device of a fence do what is still to do.
BOUNDARY_API MireloStatus flush(DeviceFence& fence, Device& device);
/// A fence of the backend's own.
BOUNDARY_API std::shared_ptr<DeviceFence> makeFence(uint64_t value);
[[noreturn]] BOUNDARY_API void raiseFramework(const std::string& message);

}  // namespace TarnoMirelo::Boundary
