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

}  // namespace

Users Users::parse(const std::string &text, const std::string &origin) {
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
        if (u.hash.size() < 4 || u.hash[0] != '$') bad("the password must be a crypt hash ($y$ or $6$...)");
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

Users Users::load(const std::string &path) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error(path + ": cannot be read");
    std::stringstream text;
    text << in.rdbuf();
    return parse(text.str(), path);
}

bool Users::verify(const std::string &name, const std::string &password) const {
    const User *user = nullptr;
    for (const User &u : users_)
        if (u.name == name) user = &u;
    std::string d = digest(name, password);
    if (user != nullptr) {
        std::lock_guard lock(cacheMutex_);
        auto it = verified_.find(name);
        if (it != verified_.end() && sameBytes(it->second, d)) return true;
    }
    // An unknown user costs the same hash as a known one: the time of a
    // refusal tells nothing about which names exist.
    static const std::string nobody = hashPassword("");
    const std::string &hash = user != nullptr ? user->hash : nobody;
    auto data = std::make_unique<crypt_data>();
    const char *result = crypt_r(password.c_str(), hash.c_str(), data.get());
    bool ok = user != nullptr && result != nullptr && result[0] != '*' && sameBytes(result, hash);
    OPENSSL_cleanse(data.get(), sizeof(crypt_data));
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
