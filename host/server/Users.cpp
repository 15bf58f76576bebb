#include "Users.h"

#include <crypt.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace cimserver {

namespace {

// The process's key for remembered passwords, drawn once.
const std::string &digestKey() {
    static const std::string key = [] {
        std::string k(32, '\0');
        if (RAND_bytes(reinterpret_cast<unsigned char *>(k.data()), static_cast<int>(k.size())) != 1)
            throw std::runtime_error("no random bytes for the credential cache");
        return k;
    }();
    return key;
}

std::string digest(const std::string &name, const std::string &password) {
    std::string data = name + '\0' + password;
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    const std::string &key = digestKey();
    if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char *>(data.data()),
             data.size(), out, &len) == nullptr)
        throw std::runtime_error("HMAC failed");
    OPENSSL_cleanse(data.data(), data.size());
    return std::string(reinterpret_cast<char *>(out), len);
}

bool sameBytes(const std::string &a, const std::string &b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

// crypt(3) of the password with the hash as its setting; empty when the hash
// cannot be used.
std::string cryptWith(const std::string &password, const std::string &hash) {
    auto data = std::make_unique<crypt_data>();
    const char *result = crypt_r(password.c_str(), hash.c_str(), data.get());
    std::string out = result != nullptr && result[0] != '*' ? result : "";
    OPENSSL_cleanse(data.get(), sizeof(crypt_data));
    return out;
}

}  // namespace

bool Users::strongKind(const std::string &hash) {
    for (const char *prefix : {"$y$", "$gy$", "$7$"})
        if (hash.rfind(prefix, 0) == 0) return true;
    return false;
}

Users Users::parse(const std::string &text, const std::string &origin, UsersPolicy policy) {
    Users users;
    std::istringstream in(text);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        auto bad = [&](const std::string &why) {
            throw std::runtime_error(origin + ":" + std::to_string(number) + ": " + why);
        };
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#') continue;
        size_t first = line.find(':'), last = line.rfind(':');
        if (first == std::string::npos || first == last) bad("expected name:hash:level");
        User u{line.substr(0, first), line.substr(first + 1, last - first - 1), 0};
        std::string level = line.substr(last + 1);
        if (u.name.empty()) bad("empty user name");
        if (u.hash.size() < 4 || u.hash[0] != '$') bad("the password must be a crypt hash ($y$...)");
        if (!strongKind(u.hash) && !policy.allowWeakHashes)
            bad("hash kind weaker than yescrypt (make a new hash with --hash-password, or allow weak hashes)");
        if (cryptWith("probe", u.hash).size() != u.hash.size()) bad("the hash cannot be used");
        if (sameBytes(cryptWith("", u.hash), u.hash)) bad("the hash is of the empty password");
        if (level.empty() || level.size() > 3 || level.find_first_not_of("0123456789") != std::string::npos)
            bad("the level must be a number from 0 to 255");
        u.level = static_cast<unsigned>(std::stoul(level));
        if (u.level > 255) bad("the level must be a number from 0 to 255");
        for (const User &other : users.users_)
            if (other.name == u.name) bad("user " + u.name + " listed twice");
        users.users_.push_back(std::move(u));
    }
    return users;
}

Users Users::load(const std::string &path, UsersPolicy policy) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error(path + ": cannot be read");
    std::stringstream text;
    text << in.rdbuf();
    return parse(text.str(), path, policy);
}

const std::string &Users::hashFor(const std::string &name) const {
    for (const User &u : users_)
        if (u.name == name) return u.hash;
    static const std::string nobody = hashPassword("unusable password of nobody");
    return users_.empty() ? nobody : users_.front().hash;
}

bool Users::verify(const std::string &name, const std::string &password) const {
    bool known = false;
    for (const User &u : users_) known = known || u.name == name;
    std::string d = digest(name, password);
    if (known) {
        std::lock_guard lock(cacheMutex_);
        auto it = verified_.find(name);
        if (it != verified_.end() && sameBytes(it->second, d)) return true;
    }
    const std::string &hash = hashFor(name);
    std::string result = cryptWith(password, hash);
    bool ok = known && !result.empty() && sameBytes(result, hash) && password.find('\0') == std::string::npos;
    if (ok) {
        std::lock_guard lock(cacheMutex_);
        verified_[name] = d;
    }
    return ok;
}

std::string hashPassword(const std::string &password) {
    std::unique_ptr<char, decltype(&free)> salt(crypt_gensalt_ra("$y$", 0, nullptr, 0), &free);
    if (!salt) throw std::runtime_error("cannot make a salt");
    auto data = std::make_unique<crypt_data>();
    const char *result = crypt_r(password.c_str(), salt.get(), data.get());
    if (result == nullptr || result[0] == '*') throw std::runtime_error("cannot hash the password");
    std::string hash = result;
    OPENSSL_cleanse(data.get(), sizeof(crypt_data));
    return hash;
}

}  // namespace cimserver
