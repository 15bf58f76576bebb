// The server's users: a file of "name:hash:level" lines, where hash is a
// crypt(3) hash (yescrypt or SHA-512, never the password itself) and level is
// the permission level the host's authorization service answers for the user
// (5 allows methods). Blank lines and lines starting with '#' are skipped.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace cimserver {

struct User {
    std::string name;
    std::string hash;
    unsigned level = 0;
};

class Users {
public:
    // Throws std::runtime_error ("file:line: why") for a line it cannot use.
    static Users load(const std::string &path);
    static Users parse(const std::string &text, const std::string &origin);

    const std::vector<User> &all() const { return users_; }
    // True when the password matches the user's hash. A password once
    // verified is remembered as a keyed digest, so later requests of the same
    // user skip the deliberately slow hash.
    bool verify(const std::string &name, const std::string &password) const;

    Users() = default;
    Users(Users &&other) noexcept : users_(std::move(other.users_)) {}

private:
    std::vector<User> users_;
    mutable std::mutex cacheMutex_;
    mutable std::map<std::string, std::string> verified_;  // user -> digest of the password
};

// A new yescrypt hash of the password, for a users file.
std::string hashPassword(const std::string &password);

}  // namespace cimserver
