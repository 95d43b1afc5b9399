// Handles: the null locale, the static failure handles, creation from a directory.
#include "frame/frame.h"
#include "frame/multi.h"
#include "support/support.h"

#include <gtest/gtest.h>

#include <climits>
#include <malloc.h>
#include <string>

using nus_test::CountingAllocator;
using nus_test::EnvGuard;
using nus_test::ExtTableGuard;
using nus_test::TempDir;

namespace {

// A bump allocator over a static arena: memory from it never touches the C heap, so a
// change in the heap's use shows an allocation that bypassed the external-function table.
alignas(16) unsigned char g_arena[1 << 20];
size_t g_arena_used = 0;
long g_arena_allocations = 0;
long g_arena_frees = 0;
void *arena_malloc(size_t size) {
    size = (size + 15) & ~size_t{15};
    if (g_arena_used + size > sizeof g_arena) return nullptr;
    ++g_arena_allocations;
    void *p = g_arena + g_arena_used;
    g_arena_used += size;
    return p;
}
void arena_free(void *) { ++g_arena_frees; }

std::string g_opened;
FILE *recording_fopen(const char *path, const char *mode) {
    g_opened = path;
    return std::fopen(path, mode);
}

} // namespace

TEST(NullLocale, StartsEmpty) {
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(*_nu_ext_errno(h), NU_SUCCESS);
    EXPECT_EQ(h->case_expansion, 1.0);
    EXPECT_EQ(h->expansion2, 1.0);
    EXPECT_EQ(h->sb_upper, nullptr);
    EXPECT_EQ(h->sb_class, nullptr);
    EXPECT_EQ(h->single_byte, 0);
    EXPECT_EQ(h->has_collation, 0);
    for (multi_t *table : {h->ctype.class_table, h->ctype.case_table, h->coll.table}) {
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(_nu_multi_max_length(table), 0);
        EXPECT_EQ(_nu_multi_min_length(table), 4);
    }
    for (int i = 0; i < NU_CATEGORY_COUNT; ++i) {
        EXPECT_STREQ(h->codeset[i], "");
        EXPECT_STREQ(h->locname[i], "");
        EXPECT_EQ(h->companion[i], nullptr);
        EXPECT_EQ(h->companion_flag[i], 0);
    }
    EXPECT_EQ(h->lc.decimal_point.mb, nullptr);
    for (int32_t value : h->lc.mon_values) EXPECT_EQ(value, 2147483647);
    for (char value : h->nuconv.mon_values) EXPECT_EQ(value, CHAR_MAX);
    EXPECT_EQ(h->nuconv.currency_symbol.mb, nullptr);
    nu_lc_unload(h);
}

// Every allocation of creating and freeing a handle goes through the installed allocator,
// and all of it comes back.
TEST(NullLocale, AllocatesOnlyThroughTheTable) {
    CountingAllocator counter;
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    EXPECT_GT(counter.allocations, 0);
    nu_lc_unload(h);
    EXPECT_EQ(counter.live, 0);
    EXPECT_EQ(counter.frees, counter.allocations);
}

TEST(NullLocale, NoAllocationBypassesTheTable) {
    ExtTableGuard guard;
    nu_setextfunc(nullptr, NU_EXT_MALLOC, reinterpret_cast<nu_extfunc>(&arena_malloc));
    nu_setextfunc(nullptr, NU_EXT_FREE, reinterpret_cast<nu_extfunc>(&arena_free));
    g_arena_allocations = g_arena_frees = 0;
    const size_t heap_before = mallinfo2().uordblks;
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    nu_free_category(h, NU_COLLATE);
    nu_make_null_category(h, NU_COLLATE);
    nu_lc_unload(h);
    EXPECT_EQ(mallinfo2().uordblks, heap_before);
    EXPECT_GT(g_arena_allocations, 0);
    EXPECT_EQ(g_arena_frees, g_arena_allocations);
}

// Refusing each allocation of creation in turn: the first refusal hands out the static
// handle; later ones leave a usable handle with NU_ENOMEM, and nothing leaks.
TEST(NullLocale, SurvivesEveryAllocationFailure) {
    long total = 0;
    {
        CountingAllocator counter;
        nu_locale_t h = nullptr;
        ASSERT_EQ(nu_create_null_locale_4(&h), 0);
        total = counter.allocations;
        nu_lc_unload(h);
    }
    ASSERT_GT(total, 1);
    for (long n = 1; n <= total; ++n) {
        CountingAllocator counter;
        counter.fail_from(n);
        nu_locale_t h = nullptr;
        const int result = nu_create_null_locale_4(&h);
        if (n == 1) {
            EXPECT_EQ(result, -1);
            EXPECT_EQ(h, &loc_nomem);
        } else {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(*_nu_ext_errno(h), NU_ENOMEM) << "refusing allocation " << n;
        }
        nu_lc_unload(h);
        EXPECT_EQ(counter.live, 0) << "refusing allocation " << n;
    }
}

TEST(NullLocale, StaticHandlesCarryTheirCodes) {
    EXPECT_EQ(*_nu_ext_errno(&loc_nomem), NU_ENOMEM);
    EXPECT_EQ(*_nu_ext_errno(&loc_filer), NU_ENOFILE);
    nu_lc_unload(&loc_nomem); // ignored by address
    nu_lc_unload(&loc_filer);
    nu_lc_unload(nullptr);
    nu_free_category(&loc_filer, NU_CTYPE);
    EXPECT_EQ(loc_filer.error, NU_ENOFILE);
    EXPECT_EQ(loc_nomem.ctype.class_table, nullptr);
}

TEST(NullLocale, RemakingCategoriesDoesNotLeak) {
    CountingAllocator counter;
    nu_locale_t h = nullptr;
    ASSERT_EQ(nu_create_null_locale_4(&h), 0);
    std::snprintf(h->locname[0], sizeof h->locname[0], "%s", "de_de");
    for (int category = 0; category <= 9; ++category) {
        nu_free_category(h, category);
        nu_make_null_category(h, category);
    }
    EXPECT_STREQ(h->locname[0], "");
    EXPECT_NE(h->ctype.class_table, nullptr);
    nu_lc_unload(h);
    EXPECT_EQ(counter.live, 0);
}

// The directory quirk: more than 116 characters fails before anything is made, and the code
// lands in the caller's variable itself.
TEST(CreateLocale, DirectoryLengthLimit) {
    ExtTableGuard guard;
    TempDir root;
    EnvGuard path("NU_PATH", std::nullopt);
    EnvGuard tess("TESSARONDIR", root.str());

    const std::string long_dir(117, 'd');
    nu_locale_t h = nullptr;
    EXPECT_EQ(nu_createlocale2_4(&h, long_dir.c_str()), -1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(h), 8u);

    // 116 characters proceed: the file is tried as directory + "default.lco", then searched.
    const std::string dir = "/" + std::string(115, 'd');
    nu_setextfunc(nullptr, NU_EXT_FOPEN, reinterpret_cast<nu_extfunc>(&recording_fopen));
    g_opened.clear();
    h = nullptr;
    EXPECT_EQ(nu_createlocale2_4(&h, dir.c_str()), -1);
    EXPECT_EQ(h, &loc_filer);
    EXPECT_EQ(*_nu_ext_errno(h), NU_ENOFILE);
    nu_lc_unload(h);
}

TEST(CreateLocale, TriesTheDirectoryByPlainConcatenation) {
    ExtTableGuard guard;
    TempDir root;
    root.write("xdefault.lco", "FILE_TYPE=LOCALE\n");
    nu_setextfunc(nullptr, NU_EXT_FOPEN, reinterpret_cast<nu_extfunc>(&recording_fopen));
    nu_locale_t h = nullptr;
    const std::string prefix = root.str() + "/x";
    nu_createlocale2_4(&h, prefix.c_str());
    EXPECT_EQ(g_opened, prefix + "default.lco");
    EXPECT_NE(h, &loc_filer);
    nu_lc_unload(h);
}

TEST(CreateLocale, WithoutDefaultLocaleGivesTheFileErrorHandle) {
    TempDir root;
    EnvGuard path("NU_PATH", std::nullopt);
    EnvGuard tess("TESSARONDIR", root.str());
    CountingAllocator counter;
    nu_locale_t h = nullptr;
    EXPECT_EQ(nu_createlocale_4(&h), -1);
    EXPECT_EQ(h, &loc_filer);
    EXPECT_EQ(*_nu_ext_errno(h), NU_ENOFILE);
    nu_lc_unload(h);
    EXPECT_EQ(counter.live, 0);
}
