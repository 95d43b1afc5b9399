// Code-set conversion through every default pair of the data tree: random bytes in random
// pieces, with random output room and state resets.
#include "fuzz/conversion.h"

#include <algorithm>
#include <dirent.h>

namespace {

struct Pair {
    std::string name;
    nu_cv_t cv;
};

// The pairs named by their code-set numbers (ssssTTTT.cvo), opened once, in name order.
const std::vector<Pair> &pairs() {
    // Kept for the life of the process (never destroyed, so still reachable at exit).
    static const std::vector<Pair> *const list = new std::vector<Pair>([] {
        nus_fuzz::environment();
        std::vector<std::string> names;
        const std::string dir = std::string(nus_fuzz::data_dir()) + "/nus/cv9";
        if (DIR *d = opendir(dir.c_str())) {
            while (dirent *e = readdir(d)) {
                const std::string n = e->d_name;
                if (n.size() == 12 && n.compare(8, 4, ".cvo") == 0 &&
                    n.find_first_not_of("0123456789abcdef") == 8)
                    names.push_back(n);
            }
            closedir(d);
        }
        std::sort(names.begin(), names.end());
        std::vector<Pair> opened;
        for (const std::string &n : names) {
            nu_cv_t cv = nullptr;
            if (nu_iconv_open1(&cv, n.c_str()) == 0) opened.push_back({n, cv});
            else nu_cv_unload(cv);
        }
        return opened;
    }());
    return *list;
}

} // namespace

NUS_FUZZ_TARGET(convert) {
    const std::vector<Pair> &all = pairs();
    if (all.empty()) return 0;
    nus_fuzz::Input in(data, size);
    const Pair &pair = all[in.byte() % all.size()];
    const uint8_t mode = in.byte();
    const bool faithful = (mode & 1) != 0;
    const bool with_state = (mode & 2) != 0;

    if ((mode & 4) == 0) {
        nus_fuzz::convert_in_pieces(pair.cv, in, faithful, with_state);
        return 0;
    }
    // Without an input length: the text, padded to whole units of a fixed-width source, and a
    // terminating character of zeros; conversion must stop inside it.
    const nu_cv_rec *rec = pair.cv;
    if (rec->source_stateful != 0) return 0;
    std::string text = in.rest();
    const size_t unit = static_cast<size_t>(std::max(rec->source_min_len, 1));
    if (rec->source_min_len == rec->source_max_len) text.resize((text.size() + unit - 1) / unit * unit);
    text.append(4, '\0');
    nus_fuzz::Exact input(text);
    const int room = static_cast<int>(8 * text.size());
    nus_fuzz::Exact output(static_cast<size_t>(room));
    unsigned char *in_p = input.get();
    unsigned char *out_p = output.get();
    int left = room, irreversible = 0;
    *_nu_ext_errno(pair.cv) = 0;
    const int result = nu_miconv(pair.cv, &in_p, nullptr, &out_p, &left, &irreversible);
    NUS_FUZZ_CHECK(in_p >= input.get() && in_p <= input.get() + text.size());
    NUS_FUZZ_CHECK(left == room - static_cast<int>(out_p - output.get()));
    if (result != 0) {
        const int error = *_nu_ext_errno(pair.cv);
        NUS_FUZZ_CHECK(error == NU_EILSEQ || error == NU_EINVAL || error == NU_E2BIG);
    }
    return 0;
}
