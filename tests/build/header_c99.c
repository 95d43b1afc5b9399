/* The public header compiles as strict C99 with every warning, and its functions link
   against the shared library. */
#include <nus.h>

#include <string.h>

int main(void) {
    nu_locale_t h = NULL;
    nu_chardesc d = {2, {0x81, 0xFF, 0, 0}};
    nu_chardesc e;
    int ok = 1;
    if (nu_create_null_locale_4(&h) != 0) return 1;
    ok &= *_nu_ext_errno(h) == NU_SUCCESS;
    ok &= strcmp(nu_version(), "nuslib-4.00.UC2") == 0;
    ok &= nu_setextfunc(h, NU_EXT_SLOTS, NULL) == -1 && *_nu_ext_errno(h) == NU_EBADVAL;
    _nu_desc_offset(&d, 1, &e);
    ok &= e.bytes[0] == 0x82 && e.bytes[1] == 0x00;
    nu_lc_unload(h);
    return ok ? 0 : 1;
}
