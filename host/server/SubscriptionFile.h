// The file subscriptions are kept in: JSON, one entry per instance with its
// class and typed properties, replaced as a whole (a new file renamed over
// the old one, mode 0600), so a crash leaves the old or the new one.
#pragma once

#include "Value.h"

#include <string>
#include <vector>

namespace cimserver {

// Throws std::runtime_error ("path: why"). A missing file holds nothing.
std::vector<cimhost::InstanceV> readSubscriptionFile(const std::string &path);
void writeSubscriptionFile(const std::string &path, const std::vector<const cimhost::InstanceV *> &instances);

// The same as text, for tests and fuzzing.
std::vector<cimhost::InstanceV> parseSubscriptions(const std::string &text, const std::string &origin);
std::string subscriptionText(const std::vector<const cimhost::InstanceV *> &instances);

}  // namespace cimserver
