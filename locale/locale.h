// Internal interface of the locale objects: category records' life cycle.
#pragma once

#include "frame/frame.h"

namespace nus {

// Empty states and releases of the NUMERIC, MONETARY and MESSAGES fields and of the
// caller-visible conventions record.
void init_numeric(nu_locale_rec *h);
void init_monetary(nu_locale_rec *h);
void init_messages(nu_locale_rec *h);
void free_numeric(nu_locale_rec *h);
void free_monetary(nu_locale_rec *h);
void free_messages(nu_locale_rec *h);
void init_nuconv_numeric(nu_locale_rec *h);
void init_nuconv_monetary(nu_locale_rec *h);
void free_nuconv_numeric(nu_locale_rec *h);
void free_nuconv_monetary(nu_locale_rec *h);

// Releases a category string and its wide twin, leaving both null.
void free_string(CatString &s);

} // namespace nus
