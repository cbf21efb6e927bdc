#pragma once

/// @file
/// Finds the mistakes of those who package models. The loader of manifests takes what it understands and passes over
/// the rest without a word, as it has to; the functions here say what it passes over, and what would go wrong later.
///
/// The functions keep no state: calls may overlap. They raise nothing but `std::bad_alloc`. Time and memory grow no
/// faster than the manifest.

#include <TarnoMirelo/files.h>
#include <TarnoMirelo/model.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace TarnoMirelo::Kit {

/// How bad a finding is.
enum class Severity {
    Error,    ///< the model can't be used, or a value is ignored or changed
    Warning,  ///< it works, but perhaps not as it was meant, or not with every backend
};

/// One mistake. Texts are UTF-8 and of one line; long values are cut.
struct Finding {
    Severity severity = Severity::Error;  ///< how bad it is
    /// Where it is: the JSON pointer of the value, as in "/targets/WinML/inputs/0/name", empty for the root; or the
    /// name of an archive's entry. Between the members of an object or the elements of a list, that of the whole.
    std::string where;
    uint64_t line = 0;    ///< from 1; 0 where it is no place in a text
    uint64_t column = 0;  ///< in characters, from 1; 0 likewise
    std::string what;     ///< what is wrong, as in "The key is not known"
    std::string found;    ///< what is there; empty where `what` says all
    std::string wanted;   ///< what may stand there; empty where `found` is, and where a backend refuses
    std::string advice;   ///< what to do, as in `Write "name".`
};

/// All of a finding but its place, as in
///
///     error: The key is not known. Found "naem", wanted "id", "name" or "author". Write "name".
std::string toText(const Finding& finding);

/// Whether one of them is an error.
bool hasErrors(const std::vector<Finding>& findings);

/// Checks a manifest and the files that it names. Where there is no finding, `AllTargetsMetadata::load` stores every
/// member that it has a field for. Where `ModelMetadata::load`, or `validate` for "WinML", would refuse the manifest,
/// one finding at least is an error.
/// @param manifest  as `ModelMetadata::load` takes it; that the loader misreads its directory is a finding, too
/// @return in the order of the text. At most 1,000 of a severity; then one more says how many others there are.
std::vector<Finding> checkManifest(const Filepath& manifest);

/// As `checkManifest`, but looks at no file.
/// @param text  of the manifest
std::vector<Finding> checkManifestText(std::string_view text);

/// As `checkManifest`. If there is no error, has the backend load the target of the model's type, and predicts once:
/// inputs are zero, and a dimension that is left open is 1. What a step refuses is a finding. If loading works, but the
/// engine fails to predict (`ML_FRAMEWORK_ERROR`) or its result does not fit the target (`MODEL_METADATA_ERROR`), that
/// is a warning: the network may refuse only zeros, and an output's shape may depend on values.
/// @param model  not registered; it is unloaded at the end. Null is refused by a finding.
/// @param key    of the protected components, 16 bytes; null: none is protected. Where there is a key and no protected
///               component, that is a finding.
std::vector<Finding> checkPackage(const Filepath& manifest, const std::shared_ptr<MireloModel>& model,
                                  const unsigned char* key = nullptr);

}  // namespace TarnoMirelo::Kit
