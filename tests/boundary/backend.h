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
/// `fence.flush(&device)`
BOUNDARY_API MireloStatus flush(DeviceFence& fence, Device& device);

}  // namespace TarnoMirelo::Boundary
