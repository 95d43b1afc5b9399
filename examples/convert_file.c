/*
 * convert_file: converts text from one code set to another, piece by piece.
 *
 *   convert_file FROM TO [FILE] > output
 *
 * FROM and TO are code-set names of the registry (8859-1, utf8, sjis, ...) or locale
 * names (de_de.8859-1). The conversion object is found under $TESSARONDIR (default
 * /usr/tessaron). Characters that TO lacks are replaced by its substitute, and a note says so.
 *
 * The input is read in pieces of a fixed size, so a character may be cut at the end of a
 * piece: the conversion then stops before it (NU_EINVAL) and the cut bytes are carried over to
 * the front of the next piece. An output buffer that fills up (NU_E2BIG) is written out and
 * the conversion resumes where it stopped.
 */
#include <nus.h>

#include <stdio.h>
#include <string.h>

int main(int argc, char **argv) {
    FILE *input = stdin;
    nu_cv_t cv = NULL;
    nu_cv_state state = {1, 0, 0, 0}; /* reset: the text starts here */
    unsigned char piece[4096], out[4096];
    int pending = 0;          /* bytes at the front of `piece` left from the last round */
    long offset = 0;          /* input bytes converted so far, for messages */
    int substituted = 0;      /* set once a character had no exact equivalent */
    int status = 0, last = 0;

    if (argc < 3 || argc > 4) {
        fprintf(stderr, "usage: convert_file FROM TO [FILE]\n");
        return 2;
    }
    if (argc == 4 && (input = fopen(argv[3], "rb")) == NULL) {
        perror(argv[3]);
        return 1;
    }
    /* The target comes first. 1: a descriptor was made; 0: both name the same code set and
       the bytes are copied as they are; -1: failure, explained by cv's error slot. */
    switch (nu_cv_load(&cv, argv[2], argv[1], NULL, NULL)) {
    case -1:
        fprintf(stderr, "convert_file: no conversion from %s to %s (error %d)\n", argv[1],
                argv[2], *_nu_ext_errno(cv));
        nu_cv_unload(cv);
        return 1;
    case 0: {
        size_t n;
        while ((n = fread(piece, 1, sizeof piece, input)) > 0) fwrite(piece, 1, n, stdout);
        if (input != stdin) fclose(input);
        return 0;
    }
    }

    while (!last) {
        size_t got = fread(piece + pending, 1, sizeof piece - (size_t)pending, input);
        unsigned char *in = piece;
        int inlen = pending + (int)got;
        int c = getc(input); /* one byte of look-ahead tells whether this is the last piece */
        if (c == EOF) last = 1;
        else ungetc(c, input);
        state.flush = last; /* a shifted target shifts back at the end of the text */
        if (inlen == 0) break;

        for (;;) {
            unsigned char *to = out;
            int room = (int)sizeof out, irreversible = 0;
            int result = nu_cv_mconv(cv, &state, &in, &inlen, &to, &room, &irreversible);
            int error = result == 0 ? 0 : *_nu_ext_errno(cv);
            fwrite(out, 1, (size_t)(to - out), stdout);
            substituted |= irreversible;
            state.reset = 0;
            if (error == NU_E2BIG) continue; /* output written out: go on from *in */
            offset += (long)(in - piece);
            if (error == NU_EINVAL && !last) {
                /* A character cut by the end of the piece: carry it over. */
                memmove(piece, in, (size_t)inlen);
                pending = inlen;
            } else if (error != 0) {
                fprintf(stderr, "convert_file: %s at input byte %ld\n",
                        error == NU_EINVAL ? "incomplete character" : "invalid character",
                        offset);
                status = 1;
                last = 1;
            } else {
                pending = 0;
            }
            break;
        }
    }
    if (substituted)
        fprintf(stderr, "convert_file: characters without an equivalent in %s were substituted\n",
                argv[2]);
    nu_cv_unload(cv);
    if (input != stdin) fclose(input);
    return status;
}
