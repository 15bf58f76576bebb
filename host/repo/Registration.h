// Provider registration in the stock CIMOM's text format, read the same way
// by our host so that one file serves both:
//
//   [Tovra_StoragePool]
//      provider: TovraStoragePoolProvider
//      location: TovraProviders
//      type: instance method
//      namespace: tovra/cimv2
//      unload: never
//   #
//
// Rules (stricter than the stock CIMOM, so a file we accept also loads there):
// - Blank lines are ignored everywhere.
// - A line whose first non-blank character is '#' ends the open block; outside
//   a block it is a comment. Hence comments go between blocks, never inside.
// - "[Class]" opens a block; the previous block must have been ended by '#',
//   and the file must not end inside a block.
// - Inside a block only "key: value" lines with the keys provider, location,
//   type, namespace and unload; an unknown or repeated key is an error.
//   provider, location, type and namespace are required.
// - type: space-separated kinds among instance, association, method,
//   indication, property; namespace: space-separated namespaces.
// - One block per class (class names compare without regard to case).
#pragma once

#include "ClassDecl.h"

#include <istream>
#include <string>
#include <vector>

namespace cimhost {

struct RegistrationEntry {
    std::string className, providerName, location;
    std::vector<std::string> kinds, namespaces;
    std::string unload;  // empty when not given
};

class RegistrationError : public SourceError {
public:
    using SourceError::SourceError;
};

// Throw RegistrationError ("origin:line: message").
std::vector<RegistrationEntry> parseRegistration(std::istream &in, const std::string &origin);
std::vector<RegistrationEntry> loadRegistration(const std::string &path);

}  // namespace cimhost
