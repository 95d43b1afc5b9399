/* A small program using nuslib through its public header: it creates a handle holding the
   built-in null locale, prints the versions and asks the null locale a few questions. */
#include <nus.h>

#include <stdio.h>

static const char *category_names[] = {"NU_CTYPE", "NU_COLLATE", "NU_NUMERIC",
                                       "NU_MONETARY", "NU_TIME", "NU_MESSAGES"};

int main(void) {
    nu_locale_t h = NULL;
    int category;
    static const unsigned char word[] = "Hello";
    int length = 0;

    printf("library %s, locale objects %s, conversions %s, character maps %s\n",
           nu_version(), nu_lc_version(), nu_cv_version(), nu_cm_version());

    if (nu_create_null_locale_4(&h) != 0) {
        printf("could not create a handle: error %d\n", *_nu_ext_errno(h));
        return 1;
    }
    printf("null locale created, error slot %d\n", *_nu_ext_errno(h));
    for (category = NU_CTYPE; category <= NU_MESSAGES; ++category)
        printf("  category %d (%s): empty\n", category, category_names[category - NU_CTYPE]);

    /* Searching for a file that is not installed: NU_ENOFILE, and the handle stays usable. */
    if (nu_path_search(h, "no-such-file.lco", "lc", nu_lc_version()) == NULL)
        printf("search for no-such-file.lco: error %d (NU_ENOFILE is %d)\n", *_nu_ext_errno(h),
               NU_ENOFILE);

    /* A table of the single-byte code set: every byte is one character. */
    {
        static const unsigned short zero = 0;
        multi_t *table = _nu_create_multi(sizeof zero, 0, &zero);
        multi_key key = {1, {'H', 0, 0, 0}};
        if (table != NULL && _nu_insert_desc_multi(&key, NULL, table) == 0) {
            const unsigned char *p;
            int count = 0;
            for (p = word; *p != 0; p += length, ++count) {
                if (_nu_retrieve_text_multi_limit(p, table, 1, &length, h) == NULL) {
                    printf("  byte %02x is not a character yet\n", *p);
                    length = 1;
                }
            }
            _nu_compress_multi(table); /* completes the single-byte table */
            for (p = word, count = 0; *p != 0; p += length, ++count)
                _nu_retrieve_text_multi_limit(p, table, 1, &length, h);
            printf("\"%s\" holds %d characters of a single-byte code set\n", word, count);
        }
        _nu_free_multi(table);
    }

    nu_lc_unload(h);

    return 0;
}
