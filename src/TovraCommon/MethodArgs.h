// Typed reading of a method's input arguments. Every failure ends the method
// with a status and the caller's fixed message: a missing argument, a value of
// the wrong type (a string where a number is expected, an array where a
// scalar is expected, or the reverse) and a null value all fail clearly.
// Numeric arguments arrive in whatever integer type the client chose; the
// methods use their low 32 bits or their low byte.
#pragma once

#include <cmpimacs.h>

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

namespace tovra {

// Ends a method early: thrown by argument checks and caught by the method
// frame, which returns rc with message as a broker string.
struct MethodFailure : std::exception {
    MethodFailure(CMPIrc code, std::string text) : rc(code), message(std::move(text)) {}
    const char *what() const noexcept override { return message.c_str(); }
    CMPIrc rc;
    std::string message;
};

[[noreturn]] inline void failMethod(const char *message, CMPIrc rc = CMPI_RC_ERR_FAILED) {
    throw MethodFailure(rc, message);
}

// Status 49 with "<method>: incorrect args number were received." when the
// argument count is not `expected`.
void requireArgCount(const char *method, unsigned count, unsigned expected);

class ArgReader {
public:
    explicit ArgReader(const CMPIArgs *in) : in_(in) {}

    // Number of arguments handed in (0 for a missing list).
    unsigned count() const;
    bool has(const char *name) const;

    // An integer (any width or sign) or boolean argument, by its low 32 bits.
    // Missing: status 1 with `missing`. Null, a string, an array or any other
    // type: status 1 with `wrongType` when given, else `missing`.
    uint32_t number(const char *name, const char *missing, const char *wrongType = nullptr) const;
    uint8_t byte(const char *name, const char *missing, const char *wrongType = nullptr) const {
        return static_cast<uint8_t>(number(name, missing, wrongType));
    }
    // A string argument.
    std::string text(const char *name, const char *missing, const char *wrongType = nullptr) const;
    // An array of integers, each element by its low byte; at most `limit`
    // elements are read, the rest read as 0. A null element or an element of
    // another type fails like a wrong type.
    std::vector<uint8_t> bytes(const char *name, const char *missing, const char *wrongType = nullptr,
                               std::size_t limit = SIZE_MAX) const;

private:
    CMPIData fetch(const char *name, const char *missing) const;
    const CMPIArgs *in_;
};

}  // namespace tovra
