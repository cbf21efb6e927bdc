#pragma once

#include <TarnoMirelo/model.h>

/// An empty model of the backend that this program was built with.
std::shared_ptr<TarnoMirelo::MireloModel> makeModel();
