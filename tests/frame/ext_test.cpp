// The external-function table, versions, memory and arithmetic helpers.
#include "frame/frame.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

using nus_test::ExtTableGuard;

namespace {

// A record of which replacement was called last.
int g_called = -1;

template <int Slot>
void note() {
    g_called = Slot;
}

char *fake_getenv(const char *) { note<0>(); return nullptr; }
int g_other_cell = 0;
int *fake_errno(void *) { note<1>(); return &g_other_cell; }
int fake_fclose(FILE *) { note<2>(); return 0; }
int fake_feof(FILE *) { note<3>(); return 0; }
int fake_ferror(FILE *) { note<4>(); return 0; }
int fake_fgetc(FILE *) { note<5>(); return 'z'; }
char *fake_fgets(char *b, int, FILE *) { note<6>(); return b; }
FILE *fake_fopen(const char *, const char *) { note<7>(); return nullptr; }
void fake_free(void *) { note<8>(); }
int fake_fseek(FILE *, long, int) { note<9>(); return 0; }
long fake_ftell(FILE *) { note<10>(); return 0; }
size_t fake_fwrite(const void *, size_t, size_t, FILE *) { note<11>(); return 0; }
int fake_getc(FILE *) { note<12>(); return 'z'; }
void *fake_malloc(size_t) { note<13>(); return nullptr; }
int fake_ungetc(int c, FILE *) { note<14>(); return c; }
int fake_putenv(char *) { note<15>(); return 0; }
void fake_currdate(unsigned short *) { note<16>(); }
void fake_currtime(int *) { note<17>(); }
void *fake_calloc(size_t, size_t) { note<18>(); return nullptr; }
void *fake_realloc(void *, size_t) { note<19>(); return nullptr; }

template <typename Fn>
nu_extfunc as_ext(Fn fn) {
    return reinterpret_cast<nu_extfunc>(fn);
}

} // namespace

TEST(Versions, AreTheLibrarysOwn) {
    EXPECT_STREQ(nu_version(), "nuslib-4.00.UC2");
    EXPECT_STREQ(nu_cm_version(), "3");
    EXPECT_STREQ(nu_lc_version(), "11");
    EXPECT_STREQ(nu_cv_version(), "9");
}

TEST(ExtTable, SlotBoundsAreChecked) {
    ExtTableGuard guard;
    int32_t cell = 0;
    EXPECT_EQ(nu_setextfunc(&cell, 20, as_ext(&fake_realloc)), -1);
    EXPECT_EQ(cell, NU_EBADVAL);
    cell = 0;
    EXPECT_EQ(nu_setextfunc(&cell, -1, as_ext(&fake_realloc)), -1);
    EXPECT_EQ(cell, NU_EBADVAL);
    cell = 0;
    EXPECT_EQ(nu_setextfunc(&cell, 19, as_ext(&fake_realloc)), 0);
    EXPECT_EQ(cell, 0);
    EXPECT_EQ(_nu_ext_func, 1);
    EXPECT_EQ(_nu_get_ext_funcptr(19), as_ext(&fake_realloc));
}

// Every dispatcher calls the function installed in its own slot, and the default again once
// the slot is emptied.
TEST(ExtTable, EveryDispatcherUsesItsSlot) {
    ExtTableGuard guard;
    const nu_extfunc fakes[NU_EXT_SLOTS] = {
        as_ext(&fake_getenv), as_ext(&fake_errno),  as_ext(&fake_fclose),  as_ext(&fake_feof),
        as_ext(&fake_ferror), as_ext(&fake_fgetc),  as_ext(&fake_fgets),   as_ext(&fake_fopen),
        as_ext(&fake_free),   as_ext(&fake_fseek),  as_ext(&fake_ftell),   as_ext(&fake_fwrite),
        as_ext(&fake_getc),   as_ext(&fake_malloc), as_ext(&fake_ungetc),  as_ext(&fake_putenv),
        as_ext(&fake_currdate), as_ext(&fake_currtime), as_ext(&fake_calloc),
        as_ext(&fake_realloc)};
    int32_t cell = 0;
    char buffer[8];
    unsigned short date[3];
    int record[12];
    FILE *stream = tmpfile();
    ASSERT_NE(stream, nullptr);
    auto call = [&](int slot) {
        switch (slot) {
        case 0: _nu_ext_getenv("HOME"); break;
        case 1: _nu_ext_errno(&cell); break;
        case 2: _nu_ext_fclose(stream); break;
        case 3: _nu_ext_feof(stream); break;
        case 4: _nu_ext_ferror(stream); break;
        case 5: _nu_ext_fgetc(stream); break;
        case 6: _nu_ext_fgets(buffer, sizeof buffer, stream); break;
        case 7: _nu_ext_fopen("/nonexistent/x", "r"); break;
        case 8: _nu_ext_free(nullptr); break;
        case 9: _nu_ext_fseek(stream, 0, SEEK_SET); break;
        case 10: _nu_ext_ftell(stream); break;
        case 11: _nu_ext_fwrite("", 1, 0, stream); break;
        case 12: _nu_ext_getc(stream); break;
        case 13: _nu_ext_free(_nu_ext_malloc(4)); break;
        case 14: _nu_ext_ungetc('a', stream); break;
        case 15: _nu_ext_putenv(const_cast<char *>("NUS_TEST_UNUSED=1")); break;
        case 16: _nu_ext_currdate(date); break;
        case 17: _nu_ext_currtime(record); break;
        case 18: _nu_ext_free(_nu_ext_calloc(1, 4)); break;
        case 19: _nu_ext_free(_nu_ext_realloc(nullptr, 4)); break;
        }
    };
    for (int slot = 0; slot < NU_EXT_SLOTS; ++slot) {
        if (slot == 2) continue; // closing is tried last, the stream is still in use
        ASSERT_EQ(nu_setextfunc(&cell, slot, fakes[slot]), 0);
        g_called = -1;
        call(slot);
        EXPECT_EQ(g_called, slot) << "slot " << slot;
        ASSERT_EQ(nu_setextfunc(&cell, slot, nullptr), 0);
        g_called = -1;
        call(slot);
        EXPECT_EQ(g_called, -1) << "slot " << slot << " after restoring the default";
    }
    ASSERT_EQ(nu_setextfunc(&cell, 2, fakes[2]), 0);
    g_called = -1;
    _nu_ext_fclose(stream);
    EXPECT_EQ(g_called, 2);
    _nu_set_ext_funcptr(2, nullptr);
    std::fclose(stream);
    unsetenv("NUS_TEST_UNUSED");
}

TEST(ExtTable, ReplacedErrorLookupLeavesTheHandleAlone) {
    ExtTableGuard guard;
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    nu_setextfunc(h, NU_EXT_ERRNO, as_ext(&fake_errno));
    g_other_cell = 0;
    EXPECT_EQ(nu_setextfunc(h, 42, nullptr), -1);
    EXPECT_EQ(g_other_cell, NU_EBADVAL);
    EXPECT_EQ(nu_path_search(h, "surely-absent.lco", "lc", "11"), nullptr);
    EXPECT_EQ(g_other_cell, NU_ENOFILE);
    _nu_set_ext_funcptr(NU_EXT_ERRNO, nullptr);
    EXPECT_EQ(*_nu_ext_errno(h), NU_SUCCESS);
    nu_lc_unload(h);
}

TEST(ExtTable, ClockDefaultsDescribeNow) {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    unsigned short date[3] = {};
    nu_ext_currdate(date);
    EXPECT_GE(date[0], 1);
    EXPECT_LE(date[0], 12);
    EXPECT_GE(date[1], 1);
    EXPECT_LE(date[1], 31);
    EXPECT_NEAR(date[2], local.tm_year + 1900, 1);
    int record[12];
    std::memset(record, 0x55, sizeof record);
    nu_ext_currtime(record);
    EXPECT_EQ(record[0], 0);
    EXPECT_GE(record[1], 0);
    EXPECT_LE(record[1], 60);
    EXPECT_LE(record[3], 23);
    EXPECT_LE(record[5], 11);
    EXPECT_NEAR(record[6], local.tm_year, 1);
    EXPECT_LE(record[7], 6);
    EXPECT_LE(record[8], 365);
    EXPECT_EQ(record[10], 0);
    EXPECT_EQ(record[11], 0);
}

TEST(Memory, ZeroSizeNeverReachesTheAllocator) {
    ExtTableGuard guard;
    nu_setextfunc(nullptr, NU_EXT_MALLOC, as_ext(&fake_malloc));
    g_called = -1;
    EXPECT_EQ(_nu_alloc_ptr(0), nullptr);
    EXPECT_EQ(g_called, -1);
    EXPECT_EQ(_nu_alloc_ptr(1), nullptr); // the fake refuses
    EXPECT_EQ(g_called, NU_EXT_MALLOC);
    nu_setextfunc(nullptr, NU_EXT_FREE, as_ext(&fake_free));
    g_called = -1;
    _nu_free_ptr(nullptr);
    EXPECT_EQ(g_called, -1);
}

TEST(Memory, ScratchUsesTheStackThenTheAllocator) {
    nus_test::CountingAllocator counter;
    {
        nus::Scratch<char, 16> small(16);
        EXPECT_TRUE(small.ok());
        EXPECT_EQ(counter.allocations, 0);
        nus::Scratch<char, 16> large(17);
        EXPECT_TRUE(large.ok());
        EXPECT_EQ(counter.allocations, 1);
    }
    EXPECT_EQ(counter.live, 0);
    counter.fail_from(counter.allocations + 1);
    nus::Scratch<char, 16> refused(100);
    EXPECT_FALSE(refused.ok());
}

TEST(Arithmetic, DigitCounts) {
    struct Case {
        long long value;
        int base;
        int digits;
        long long remainder;
    };
    // A negative value counts one digit: callers handle the sign first.
    const Case cases[] = {{0, 10, 1, 0},      {9, 10, 1, 9},       {10, 10, 2, 1},
                          {-500, 10, 1, 0},   {456, 10, 3, 4},     {99999, 10, 5, 9},
                          {255, 16, 2, 15},   {256, 16, 3, 1},     {7, 2, 3, 1},
                          {9223372036854775807LL, 10, 19, 9}};
    for (const Case &c : cases) {
        long long remainder = -1;
        EXPECT_EQ(_nu_digits(c.value, c.base, &remainder), c.digits) << c.value;
        EXPECT_EQ(remainder, c.remainder) << c.value;
    }
    unsigned long long uremainder = 0;
    EXPECT_EQ(_nu_udigits(18446744073709551615ULL, 10, &uremainder), 20);
    EXPECT_EQ(uremainder, 1u);
    EXPECT_EQ(_nu_udigits(0, 10, nullptr), 1);
    EXPECT_EQ(_nu_digits(12345, 1, nullptr), 1); // a base below 2 cannot divide
}

TEST(Arithmetic, Powers) {
    EXPECT_EQ(_nu_ipow(10, 0), 1);
    EXPECT_EQ(_nu_ipow(10, -3), 1);
    EXPECT_EQ(_nu_ipow(10, 9), 1000000000LL);
    EXPECT_EQ(_nu_ipow(-2, 3), -8);
    EXPECT_DOUBLE_EQ(_nu_fpow(10.0, 3), 1000.0);
    EXPECT_DOUBLE_EQ(_nu_fpow(10.0, -2), 0.01);
    EXPECT_DOUBLE_EQ(_nu_fpow(2.5, 0), 1.0);
}
