// The optional state file: the model as JSON with a format version, replaced
// atomically (temporary file, then rename) after every change.
#pragma once

#include <optional>
#include <string>

#include "tovrasim/Model.h"

namespace tovra::sim {

struct SavedState {
    Model model;
    std::string scenario;
};

// The state file's text to model; `origin` names it in errors. Throws
// std::runtime_error when the text cannot be used (bad JSON, other version).
SavedState parseStateText(const std::string &text, const std::string &origin);
// Empty when the file does not exist; throws std::runtime_error when it exists
// but cannot be used (unreadable, bad JSON, other version).
std::optional<SavedState> readStateFile(const std::string &path);
// Throws std::runtime_error when the file cannot be written.
void writeStateFile(const std::string &path, const Model &model, const std::string &scenario);

}  // namespace tovra::sim
