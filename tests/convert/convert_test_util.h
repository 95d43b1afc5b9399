// Helpers of the conversion tests: descriptors opened from the hand-made objects in
// tests/data/cv9 or from the generated tree, and one call of the converter with its results.
#pragma once

#include "support/support.h"

#include <gtest/gtest.h>
#include <string>

namespace nus_test {

// A descriptor unloaded at the end of the scope.
class Cv {
public:
    Cv() = default;
    explicit Cv(nu_cv_t cv) : cv_(cv) {}
    ~Cv() {
        if (cv_ != nullptr) nu_cv_unload(cv_);
    }
    Cv(const Cv &) = delete;
    Cv &operator=(const Cv &) = delete;
    Cv(Cv &&o) noexcept : cv_(o.cv_) { o.cv_ = nullptr; }
    nu_cv_t *out() { return &cv_; }
    operator nu_cv_t() const { return cv_; }
    int error() const { return *_nu_ext_errno(cv_); }

private:
    nu_cv_t cv_ = nullptr;
};

// A hand-made object of tests/data/cv9 opened by file name.
inline Cv fixture(const char *name) {
    EnvGuard path("NU_PATH", std::string(NUS_SOURCE_DIR) + "/tests/data/cv9");
    Cv cv;
    const int result = nu_iconv_open1(cv.out(), name);
    EXPECT_EQ(result, 0) << name;
    return cv;
}

// The outcome of one conversion call.
struct Conv {
    int result = 0;
    int error = 0;
    int consumed = 0;       // bytes the input pointer moved
    int left = 0;           // the input length afterwards
    std::string out;        // bytes written
    int room = 0;           // room afterwards
    int irreversible = -1;
};

// Converts `in` with an input length (or without: counted = false) into a buffer of `room`
// bytes (with a guard area after it that must stay untouched).
inline Conv convert(nu_cv_t cv, const std::string &in, int room, bool counted = true,
                    nu_cv_state *state = nullptr) {
    Conv c;
    std::string buffer(static_cast<size_t>(room) + 16, '\xAA');
    unsigned char *p = reinterpret_cast<unsigned char *>(const_cast<char *>(in.data()));
    unsigned char *o = reinterpret_cast<unsigned char *>(buffer.data());
    int length = static_cast<int>(in.size());
    c.room = room;
    *_nu_ext_errno(cv) = 0;
    c.result = nu_cv_mconv(cv, state, &p, counted ? &length : nullptr, &o, &c.room,
                           &c.irreversible);
    c.error = *_nu_ext_errno(cv);
    c.consumed = static_cast<int>(p - reinterpret_cast<const unsigned char *>(in.data()));
    c.left = length;
    c.out.assign(buffer.data(), static_cast<size_t>(o - reinterpret_cast<unsigned char *>(buffer.data())));
    EXPECT_EQ(buffer.substr(c.out.size() > static_cast<size_t>(room) ? c.out.size() : static_cast<size_t>(room)),
              std::string(buffer.size() - std::max(c.out.size(), static_cast<size_t>(room)), '\xAA'))
        << "bytes written beyond the room";
    return c;
}

} // namespace nus_test
