/*
 * format_money: formats amounts of money as a few locales write them.
 *
 *   format_money [AMOUNT...]        (default: 1234567.891 and -42.5)
 *
 * For each locale, nu_mbsfmon formats every amount with %n (the national form, with the local
 * currency symbol) and %i (the international form, with the ISO 4217 code). The locales are
 * UTF-8 ones, so that every line prints on a UTF-8 terminal; the locale files are found
 * under $TESSARONDIR (default /usr/tessaron).
 */
#include <nus.h>

#include <stdio.h>
#include <stdlib.h>

static const char *const locales[] = {"en_us.utf8", "de_de.utf8", "fr_fr.utf8", "ja_jp.utf8"};

int main(int argc, char **argv) {
    static const double defaults[] = {1234567.891, -42.5};
    int status = 0;
    size_t i;

    for (i = 0; i < sizeof locales / sizeof locales[0]; ++i) {
        nu_locale_t locale = NULL;
        int a;
        int count = argc > 1 ? argc - 1 : 2;
        if (nu_lc_load(&locale, locales[i], NULL, NULL) != 0) {
            fprintf(stderr, "format_money: cannot load %s (error %d)\n", locales[i],
                    *_nu_ext_errno(locale));
            nu_lc_unload(locale);
            status = 1;
            continue;
        }
        for (a = 0; a < count; ++a) {
            double amount = argc > 1 ? strtod(argv[a + 1], NULL) : defaults[a];
            char national[128], international[128];
            /* The size counts the terminating zero; the result is the bytes written, or -1
               (NU_E2BIG when the buffer is too small). */
            if (nu_mbsfmon(locale, national, sizeof national, "%n", amount) < 0 ||
                nu_mbsfmon(locale, international, sizeof international, "%i", amount) < 0) {
                fprintf(stderr, "format_money: %s: error %d\n", locales[i],
                        *_nu_ext_errno(locale));
                status = 1;
                continue;
            }
            printf("%s  %s  |  %s\n", locales[i], national, international);
        }
        nu_lc_unload(locale);
    }
    return status;
}
