#pragma once

/// @file
/// Everything that sdk-core offers.

#include <TarnoMirelo/config.h>
#include <TarnoMirelo/feature.h>
#include <TarnoMirelo/files.h>
#include <TarnoMirelo/logging.h>
#include <TarnoMirelo/manifest.h>
#include <TarnoMirelo/model.h>
#include <TarnoMirelo/operators.h>
#include <TarnoMirelo/status.h>
#include <TarnoMirelo/tensor.h>
