// The server's users: a file of "name:hash:level" lines, where hash is a
// crypt(3) hash (yescrypt or SHA-512, never the password itself) and level is
// the permission level the host's authorization service answers for the user
// (5 allows methods). Blank lines and lines starting with '#' are skipped.
// Hashes of the empty password are refused, and so are hash kinds weaker
// than yescrypt (SHA-512, bcrypt, MD5...) unless the policy allows them.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace cimserver {

struct UsersPolicy {
    bool allowWeakHashes = false;
};

struct User {
    std::string name;
    std::string hash;
    unsigned level = 0;
};

class Users {
public:
    // Throws std::runtime_error ("file:line: why") for a line it cannot use.
    static Users load(const std::string &path, UsersPolicy policy = {});
    static Users parse(const std::string &text, const std::string &origin, UsersPolicy policy = {});

    const std::vector<User> &all() const { return users_; }
    // True when the password matches the user's hash. A password once
    // verified is remembered as a keyed digest, so later requests of the same
    // user skip the deliberately slow hash. An unknown user costs the same
    // hash as a known one: it is checked against the first user's hash, so
    // the time of a refusal tells nothing about which names exist.
    bool verify(const std::string &name, const std::string &password) const;
    // The hash a password for that name is checked against.
    const std::string &hashFor(const std::string &name) const;

    Users() = default;
    Users(Users &&other) noexcept : users_(std::move(other.users_)) {}

    // True for yescrypt and the kinds at least as strong (scrypt, gost-yescrypt).
    static bool strongKind(const std::string &hash);

private:
    std::vector<User> users_;
    mutable std::mutex cacheMutex_;
    mutable std::map<std::string, std::string> verified_;  // user -> digest of the password
};

// A new yescrypt hash of the password, for a users file.
std::string hashPassword(const std::string &password);

}  // namespace cimserver
