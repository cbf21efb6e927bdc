#pragma once

/// @file
/// Everything that sdk-core offers.

#include <TarnoMirelo/feature.h>
#include <TarnoMirelo/files.h>
#include <TarnoMirelo/manifest.h>
#include <TarnoMirelo/model.h>
#include <TarnoMirelo/status.h>
#include <TarnoMirelo/tensor.h>
