// Internal interface of the TIME category: the record's empty state, its initialisation after
// the section is read, its release, and the limits of the section format (category.cpp).
#pragma once

#include "frame/frame.h"

namespace nus {

// Limits of a TIME section: a count or length beyond them makes the section damaged.
inline constexpr int kMinMonths = 12;
inline constexpr long kMaxTimeString = 4096;   // bytes of one name or format
inline constexpr long kMaxEras = 1024;

// The empty TIME record of the null locale: the values of the POSIX locale (English names,
// "%a %b %e %H:%M:%S %Y" and the like, the Gregorian calendar), in static storage that the
// release leaves alone. Nothing is allocated, so it cannot fail.
void init_ltime(nu_locale_rec *h);

// Whether a string of the TIME record lives in that static storage.
bool static_time_text(const void *p);

// After the section is read: wide twins of every string and the parser's validation caches.
// 1 on success; 0 with NU_ENOTLOADED when CTYPE is empty; -1 otherwise (error set).
int init_time_info(nu_locale_rec *h);

// Releases everything the record owns (strings, era table, alternative digits, caches, era
// cache) and leaves the record zeroed.
void free_ltime(nu_locale_rec *h);

// Releases the per-handle era cache only (the part a copy never shares): the block of what
// the formatter and parser derive from the record (time/derived.cpp).
void free_era_cache(nu_locale_rec *h);
void release_time_derived(void *block);

} // namespace nus
