#pragma once

#include "paths.h"

#include <TarnoMirelo/tensor.h>

#include <filesystem>
#include <memory>
#include <string>

namespace TarnoMirelo::Tool {

/// Reads an array of NumPy's file format, version 1.0 or 2.0: little-endian, in C order, of an element type that
/// tensors have. Raises `Failure` with the file's name for everything else.
std::shared_ptr<Tensor> readNpy(const std::filesystem::path& path);

/// Writes the tensor as such a file. Raises `Failure` where it can't be written.
/// @param tensor  has a buffer and an element type
void writeNpy(const ITensor& tensor, PartialFile& file);

}  // namespace TarnoMirelo::Tool
