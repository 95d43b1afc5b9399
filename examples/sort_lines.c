/*
 * sort_lines: sorts the lines of standard input by a locale's collation.
 *
 *   sort_lines LOCALE < words.txt
 *
 * LOCALE is a locale name such as de_de.8859-1 or sv_se.utf8; the input must be in
 * that locale's code set. The locale files are found under $TESSARONDIR (default
 * /usr/tessaron).
 *
 * Each line is turned into a sort key once (nu_full_mbsxfrm); the keys then compare as plain
 * byte strings, which is much cheaper than comparing the lines themselves with
 * nu_full_mbscoll at every step of the sort.
 */
#define _POSIX_C_SOURCE 200809L /* getline */

#include <nus.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct line {
    char *text;         /* the line without its newline */
    unsigned char *key; /* its sort key, ending in a 0 byte */
};

/* Orders by key; lines whose keys are equal by their bytes, so that the output does not depend
   on the order in which qsort happens to compare them. */
static int by_key(const void *a, const void *b) {
    const struct line *x = a, *y = b;
    int order = strcmp((const char *)x->key, (const char *)y->key);
    return order != 0 ? order : strcmp(x->text, y->text);
}

/* The sort key of a line, or NULL (with a message) when the line is not valid text. */
static unsigned char *make_key(nu_locale_t locale, const char *text, long number) {
    const unsigned char *s = (const unsigned char *)text;
    /* With no room the function only says how long the key is (its 0 byte not counted). */
    int size = nu_full_mbsxfrm(locale, NULL, s, 0);
    unsigned char *key;
    if (size < 0) {
        fprintf(stderr, "sort_lines: line %ld: not valid in this code set (error %d)\n", number,
                *_nu_ext_errno(locale));
        return NULL;
    }
    key = malloc((size_t)size + 1);
    if (key != NULL && nu_full_mbsxfrm(locale, key, s, size + 1) != size) {
        free(key);
        key = NULL;
    }
    return key;
}

int main(int argc, char **argv) {
    nu_locale_t locale = NULL;
    struct line *lines = NULL;
    size_t count = 0, capacity = 0, i;
    char *text = NULL;
    size_t text_size = 0;
    ssize_t length;
    int status = 0;

    if (argc != 2) {
        fprintf(stderr, "usage: sort_lines LOCALE < FILE\n");
        return 2;
    }
    /* Creates a handle and loads every category of the locale into it. On failure the handle
       still tells why, and unloading it is safe. */
    if (nu_lc_load(&locale, argv[1], NULL, NULL) != 0) {
        fprintf(stderr, "sort_lines: cannot load %s (error %d)\n", argv[1],
                *_nu_ext_errno(locale));
        nu_lc_unload(locale);
        return 1;
    }

    while ((length = getline(&text, &text_size, stdin)) != -1) {
        if (length > 0 && text[length - 1] == '\n') text[--length] = '\0';
        if (count == capacity) {
            struct line *more;
            capacity = capacity ? 2 * capacity : 64;
            more = realloc(lines, capacity * sizeof *lines);
            if (more == NULL) {
                fprintf(stderr, "sort_lines: out of memory\n");
                return 1;
            }
            lines = more;
        }
        lines[count].key = make_key(locale, text, (long)count + 1);
        if (lines[count].key == NULL) {
            status = 1;
            continue; /* leave an invalid line out and go on */
        }
        lines[count].text = strdup(text);
        if (lines[count].text == NULL) {
            fprintf(stderr, "sort_lines: out of memory\n");
            return 1;
        }
        ++count;
    }
    free(text);

    qsort(lines, count, sizeof *lines, by_key);
    for (i = 0; i < count; ++i) {
        puts(lines[i].text);
        free(lines[i].text);
        free(lines[i].key);
    }
    free(lines);
    nu_lc_unload(locale);
    return status;
}
