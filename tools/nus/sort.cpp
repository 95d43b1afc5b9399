// nus sort: sorts lines by a locale's collation. Each line's sort key is made once; lines are
// then ordered by plain byte comparison of their keys. Input beyond the memory budget goes to
// sorted run files in TMPDIR, merged at the end (in passes when there are many).
#include "tools/nus/text_io.h"

#include <getopt.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <queue>
#include <string>
#include <vector>

namespace nus_cli {

namespace {

constexpr const char *kHelp =
    "Usage: nus sort -l LOCALE [-r] [-u] [-k FIELD] [--keys] [-S SIZE] [-o OUTPUT] [FILE...]\n"
    "Sort the lines of the FILEs (standard input with none or with -) by the collation of\n"
    "LOCALE and write them to standard output. Lines with equal keys keep their input order.\n\n"
    "  -l, --locale=LOCALE     locale name (de_de.8859-1) or locale file name\n"
    "  -r, --reverse           descending order (equal lines still in input order)\n"
    "  -u, --unique            output only the first of lines with equal keys\n"
    "  -k, --field=FIELD       sort by field FIELD (from 1); fields are separated by runs of\n"
    "                          spaces and tabs, blanks before the first field are skipped,\n"
    "                          and a line with fewer fields sorts as an empty field\n"
    "      --keys              print before each line, in hexadecimal, the key it was\n"
    "                          sorted by (that of its field with -k), and a tab\n"
    "  -S, --buffer-size=SIZE  memory for lines and keys before sorted runs go to TMPDIR\n"
    "                          (suffix K, M or G; default 256M); run files are removed\n"
    "                          however the sort ends\n"
    "  -o, --output=OUTPUT     write to OUTPUT instead of standard output; it is opened\n"
    "                          when all input is read, so it may be one of the FILEs\n"
    "  -h, --help              show this help\n\n"
    "A line that is not valid in the locale's code set is reported; such lines sort first,\n"
    "by their bytes, and the exit status is 1.\n"
    "Exit status: 0 success, 1 invalid input, unknown locale or unreadable file, 2 usage error.\n";

constexpr std::size_t kDefaultBudget = 256u << 20;
constexpr std::size_t kMergeWidth = 64;  // runs merged at once (open files, buffers)

struct Options {
    bool reverse = false;
    bool unique = false;
    bool keys = false;
    long field = 0;
    std::size_t budget = kDefaultBudget;
};

// A byte comparison of keys, in the direction asked for.
int compare_keys(const char *a, std::size_t alen, const char *b, std::size_t blen) {
    const int c = std::memcmp(a, b, std::min(alen, blen));
    if (c != 0) return c;
    return alen < blen ? -1 : alen > blen ? 1 : 0;
}

// Shows progress on stderr when it is a terminal.
class Progress {
public:
    Progress() : on_(isatty(2) != 0) {}
    ~Progress() { clear(); }
    void show(const char *what, unsigned long long lines, std::size_t runs) {
        if (!on_) return;
        std::fprintf(stderr, "\rnus: sort: %s %llu lines, %zu run%s", what, lines, runs,
                     runs == 1 ? "" : "s");
        shown_ = true;
    }
    void clear() {
        if (shown_) std::fputs("\r\033[K", stderr);
        shown_ = false;
    }

private:
    bool on_;
    bool shown_ = false;
};

// A run file: records (key length, key, line length, line) in key order. The file is unlinked
// as soon as it is made, so it disappears with the process however that ends.
class Run {
public:
    ~Run() {
        if (file_ != nullptr) std::fclose(file_);
    }
    bool create(const std::string &directory) {
        std::string name = directory + "/nus-sort-XXXXXX";
        const int fd = mkstemp(name.data());
        if (fd < 0) return false;
        unlink(name.c_str());
        file_ = fdopen(fd, "w+b");
        if (file_ == nullptr) {
            close(fd);
            return false;
        }
        buffer_ = std::make_unique<char[]>(kBuffer);
        std::setvbuf(file_, buffer_.get(), _IOFBF, kBuffer);
        return true;
    }
    void put(const char *key, std::size_t klen, const char *line, std::size_t llen) {
        put_size(klen);
        std::fwrite(key, 1, klen, file_);
        put_size(llen);
        std::fwrite(line, 1, llen, file_);
    }
    // Ends writing; false on a write error.
    bool rewind_for_reading() { return std::fflush(file_) == 0 && !std::ferror(file_) && std::fseek(file_, 0, SEEK_SET) == 0; }
    // The next record; false at the end (or on a read error, which `failed` tells).
    bool next(std::string &key, std::string &line) {
        std::size_t klen, llen;
        if (!get_size(klen)) return false;
        key.resize(klen);
        if (std::fread(key.data(), 1, klen, file_) != klen || !get_size(llen)) return fail();
        line.resize(llen);
        if (std::fread(line.data(), 1, llen, file_) != llen) return fail();
        return true;
    }
    bool failed() const { return failed_; }
    void release() {
        if (file_ != nullptr) std::fclose(file_);
        file_ = nullptr;
        buffer_.reset();
    }

private:
    static constexpr std::size_t kBuffer = 1 << 16;
    void put_size(std::size_t n) {
        while (n >= 0x80) {
            std::fputc(static_cast<int>((n & 0x7F) | 0x80), file_);
            n >>= 7;
        }
        std::fputc(static_cast<int>(n), file_);
    }
    bool get_size(std::size_t &n) {
        n = 0;
        for (int shift = 0; shift < 64; shift += 7) {
            const int c = std::getc(file_);
            if (c == EOF) return shift == 0 ? (failed_ = std::ferror(file_) != 0, false) : fail();
            n |= static_cast<std::size_t>(c & 0x7F) << shift;
            if ((c & 0x80) == 0) return true;
        }
        return fail();
    }
    bool fail() {
        failed_ = true;
        return false;
    }
    std::FILE *file_ = nullptr;
    std::unique_ptr<char[]> buffer_;
    bool failed_ = false;
};

class Sorter {
public:
    Sorter(Locale &locale, std::string codeset, const Options &options, Output &out)
        : locale_(locale), codeset_(std::move(codeset)), options_(options), out_(out),
          terminator_(static_cast<std::size_t>(std::max(nu_mb_loc_min(locale), 1))) {
        const char *tmp = std::getenv("TMPDIR");
        directory_ = tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
        arena_.reserve(std::min<std::size_t>(options.budget, 1u << 30));
    }

    int add_input(std::FILE *stream, const char *name);
    int finish();
    std::size_t runs() const { return runs_.size(); }

private:
    struct Entry {
        std::uint64_t prefix;  // the key's first 8 bytes, big-endian, zero-padded
        std::size_t offset;    // of the key in the arena (the line follows it); input order
        std::uint32_t key_length;
        std::uint32_t line_length;
    };
    // Most comparisons are settled by the prefixes, without touching the arena.
    bool before(const Entry &a, const Entry &b) const {
        int c;
        if (a.prefix != b.prefix) {
            c = a.prefix < b.prefix ? -1 : 1;
        } else {
            const char *base = arena_.data();
            c = compare_keys(base + a.offset, a.key_length, base + b.offset, b.key_length);
        }
        if (options_.reverse) c = -c;
        return c != 0 ? c < 0 : a.offset < b.offset;
    }
    // The sort key of a line (of its field with -k) into key_; false when it is not valid.
    bool make_key(const char *line, std::size_t length);
    void add_line(const char *line, std::size_t length, const char *name, unsigned long long number);
    void sort_buffer();
    bool spill();
    // Merges runs [first, last) into `out` (a run or the output when null).
    bool merge(std::size_t first, std::size_t last, Run *out);
    void emit(const char *key, std::size_t klen, const char *line, std::size_t llen);

    Locale &locale_;
    std::string codeset_;
    const Options &options_;
    Output &out_;
    std::size_t terminator_;
    std::string directory_;
    std::vector<char> arena_;
    std::vector<Entry> entries_;
    std::vector<std::unique_ptr<Run>> runs_;
    std::string scratch_;
    std::string key_;
    std::string last_key_;
    bool have_last_ = false;
    int status_ = kOk;
    bool broken_ = false;  // a run file failed: the output would be incomplete
    unsigned long long lines_ = 0;
    unsigned long long invalid_ = 0;
    Progress progress_;
};

bool Sorter::make_key(const char *line, std::size_t length) {
    const char *text = line;
    std::size_t size = length;
    if (options_.field > 0) {
        const char *end = line + length;
        const char *p = line;
        const char *start = end, *stop = end;
        for (long f = 1; p < end; ++f) {
            while (p < end && (*p == ' ' || *p == '\t')) ++p;
            const char *q = p;
            while (q < end && *q != ' ' && *q != '\t') ++q;
            if (f == options_.field) {
                start = p;
                stop = q;
                break;
            }
            p = q;
        }
        text = start;
        size = static_cast<std::size_t>(stop - start);
    }
    scratch_.assign(text, size);
    scratch_.append(terminator_, '\0');
    const auto *s = reinterpret_cast<const unsigned char *>(scratch_.data());
    if (key_.size() < 64) key_.resize(64);
    while (true) {
        const int n = nu_full_mbsxfrm(locale_, reinterpret_cast<unsigned char *>(key_.data()), s,
                                      static_cast<int>(key_.size()));
        if (n < 0) {
            // Not valid: a key below every real one (those begin with a byte of 1 or more),
            // followed by the bytes themselves.
            key_.assign(1, '\0');
            key_.append(text, size);
            return false;
        }
        if (static_cast<std::size_t>(n) < key_.size()) {
            key_.resize(static_cast<std::size_t>(n));
            return true;
        }
        key_.resize(static_cast<std::size_t>(n) + 1);
    }
}

void Sorter::add_line(const char *line, std::size_t length, const char *name,
                      unsigned long long number) {
    if (!make_key(line, length)) {
        if (invalid_++ == 0) {
            BadSequence bad;
            const auto *bytes = reinterpret_cast<const unsigned char *>(line);
            find_bad_sequence(locale_, bytes, length, 0, 1, bad);
            report(kDataError, "%sline %llu, byte %zu: %s sequence %s in %s; such lines sort first, by their bytes",
                   input_prefix(name).c_str(), number, bad.offset + 1,
                   bad.truncated ? "truncated" : "invalid",
                   hex_bytes(bytes + bad.offset, bad.length).c_str(),
                   codeset_.c_str());
        }
        status_ = kDataError;
    }
    std::uint64_t prefix = 0;
    for (std::size_t i = 0; i < 8; ++i)
        prefix = prefix << 8 | (i < key_.size() ? static_cast<unsigned char>(key_[i]) : 0u);
    const Entry entry{prefix, arena_.size(), static_cast<std::uint32_t>(key_.size()),
                      static_cast<std::uint32_t>(length)};
    arena_.insert(arena_.end(), key_.begin(), key_.end());
    arena_.insert(arena_.end(), line, line + length);
    entries_.push_back(entry);
    if (arena_.size() + entries_.size() * sizeof(Entry) >= options_.budget)
        if (!spill()) broken_ = true;
}

int Sorter::add_input(std::FILE *stream, const char *name) {
    char *line = nullptr;
    std::size_t capacity = 0;
    unsigned long long number = 0;
    ssize_t got;
    while ((got = getline(&line, &capacity, stream)) > 0) {
        std::size_t length = static_cast<std::size_t>(got);
        if (line[length - 1] == '\n') --length;
        if (length != static_cast<std::uint32_t>(length)) {  // lengths are kept in 32 bits
            std::free(line);
            return report(kDataError, "%sline %llu is longer than 4 GiB", input_prefix(name).c_str(),
                          number + 1);
        }
        ++lines_;   // counted first: a run that this line fills reports it read
        add_line(line, length, name, ++number);
        if ((lines_ & 0xFFFFF) == 0) progress_.show("read", lines_, runs_.size());
        if (broken_) break;  // a run file could not be written
    }
    const bool failed = std::ferror(stream) != 0;
    std::free(line);
    if (failed)
        return report(kDataError, "%s: read error: %s",
                      std::strcmp(name, "-") == 0 ? "standard input" : name, std::strerror(errno));
    return status_;
}

void Sorter::sort_buffer() {
    std::sort(entries_.begin(), entries_.end(),
              [this](const Entry &a, const Entry &b) { return before(a, b); });
}

bool Sorter::spill() {
    sort_buffer();
    auto run = std::make_unique<Run>();
    if (!run->create(directory_)) {
        report(kDataError, "cannot make a run file in %s: %s", directory_.c_str(), std::strerror(errno));
        return false;
    }
    const char *base = arena_.data();
    const Entry *previous = nullptr;
    for (const Entry &e : entries_) {
        // Keeps the first of equal keys (the earliest line) when only unique lines are asked for.
        if (options_.unique && previous != nullptr &&
            compare_keys(base + previous->offset, previous->key_length, base + e.offset, e.key_length) == 0)
            continue;
        run->put(base + e.offset, e.key_length, base + e.offset + e.key_length, e.line_length);
        previous = &e;
    }
    if (!run->rewind_for_reading()) {
        report(kDataError, "cannot write a run file in %s: %s", directory_.c_str(), std::strerror(errno));
        return false;
    }
    runs_.push_back(std::move(run));
    arena_.clear();
    entries_.clear();
    progress_.show("read", lines_, runs_.size());
    return true;
}

void Sorter::emit(const char *key, std::size_t klen, const char *line, std::size_t llen) {
    if (options_.unique) {
        if (have_last_ && compare_keys(last_key_.data(), last_key_.size(), key, klen) == 0) return;
        last_key_.assign(key, klen);
        have_last_ = true;
    }
    if (options_.keys) {
        static const char kDigits[] = "0123456789abcdef";
        std::string hex(klen * 2 + 1, '\t');
        for (std::size_t i = 0; i < klen; ++i) {
            const auto byte = static_cast<unsigned char>(key[i]);
            hex[2 * i] = kDigits[byte >> 4];
            hex[2 * i + 1] = kDigits[byte & 15];
        }
        out_.write(hex);
    }
    out_.write(line, llen);
    out_.write("\n", 1);
}

bool Sorter::merge(std::size_t first, std::size_t last, Run *out) {
    struct Head {
        std::size_t run;
        std::string key, line;
    };
    std::vector<Head> heads(last - first);
    auto after = [this](const Head *a, const Head *b) {  // the priority queue's "less"
        int c = compare_keys(a->key.data(), a->key.size(), b->key.data(), b->key.size());
        if (options_.reverse) c = -c;
        return c != 0 ? c > 0 : a->run > b->run;
    };
    std::priority_queue<Head *, std::vector<Head *>, decltype(after)> queue(after);
    for (std::size_t i = first; i < last; ++i) {
        Head &h = heads[i - first];
        h.run = i;
        if (runs_[i]->next(h.key, h.line)) queue.push(&h);
    }
    std::string previous;
    bool have_previous = false;
    while (!queue.empty()) {
        Head *h = queue.top();
        queue.pop();
        if (out == nullptr) {
            emit(h->key.data(), h->key.size(), h->line.data(), h->line.size());
        } else if (!options_.unique || !have_previous ||
                   compare_keys(previous.data(), previous.size(), h->key.data(), h->key.size()) != 0) {
            out->put(h->key.data(), h->key.size(), h->line.data(), h->line.size());
            if (options_.unique) {
                previous = h->key;
                have_previous = true;
            }
        }
        if (runs_[h->run]->next(h->key, h->line)) queue.push(h);
    }
    for (std::size_t i = first; i < last; ++i) {
        if (runs_[i]->failed()) {
            report(kDataError, "cannot read back a run file in %s", directory_.c_str());
            return false;
        }
        runs_[i]->release();
    }
    return true;
}

int Sorter::finish() {
    if (broken_) return kDataError;
    if (runs_.empty()) {  // everything fitted in memory
        sort_buffer();
        const char *base = arena_.data();
        for (const Entry &e : entries_) {
            emit(base + e.offset, e.key_length, base + e.offset + e.key_length, e.line_length);
        }
    } else {
        if (!entries_.empty() && !spill()) return kDataError;
        std::vector<char>().swap(arena_);
        std::vector<Entry>().swap(entries_);
        // Merge consecutive groups until few enough are left; keeping them in input order
        // keeps the output stable.
        while (runs_.size() > kMergeWidth) {
            progress_.show("merging", lines_, runs_.size());
            std::vector<std::unique_ptr<Run>> merged;
            for (std::size_t first = 0; first < runs_.size(); first += kMergeWidth) {
                const std::size_t last = std::min(first + kMergeWidth, runs_.size());
                auto run = std::make_unique<Run>();
                if (!run->create(directory_)) {
                    return report(kDataError, "cannot make a run file in %s: %s", directory_.c_str(),
                                  std::strerror(errno));
                }
                if (!merge(first, last, run.get())) return kDataError;
                if (!run->rewind_for_reading())
                    return report(kDataError, "cannot write a run file in %s: %s",
                                  directory_.c_str(), std::strerror(errno));
                merged.push_back(std::move(run));
            }
            runs_.swap(merged);
        }
        progress_.show("merging", lines_, runs_.size());
        if (!merge(0, runs_.size(), nullptr)) return kDataError;
        runs_.clear();
    }
    progress_.clear();
    if (invalid_ > 1)
        warn("%llu lines were not valid in %s", invalid_, codeset_.c_str());
    return status_;
}

} // namespace

int run_sort(int argc, char **argv) {
    if (wants_help(argc, argv, kHelp)) return kOk;
    static const option kOptions[] = {
        {"locale", required_argument, nullptr, 'l'},
        {"reverse", no_argument, nullptr, 'r'},
        {"unique", no_argument, nullptr, 'u'},
        {"field", required_argument, nullptr, 'k'},
        {"keys", no_argument, nullptr, 'K'},
        {"buffer-size", required_argument, nullptr, 'S'},
        {"output", required_argument, nullptr, 'o'},
        {nullptr, 0, nullptr, 0}};
    Options options;
    const char *spec = nullptr;
    const char *output = nullptr;
    start_options();
    int option;
    while ((option = getopt_long(argc, argv, ":l:ruk:S:o:", kOptions, nullptr)) != -1) {
        switch (option) {
        case 'l': spec = optarg; break;
        case 'o': output = optarg; break;
        case 'r': options.reverse = true; break;
        case 'u': options.unique = true; break;
        case 'K': options.keys = true; break;
        case 'k':
            if (!parse_count(optarg, options.field))
                return usage_error("invalid field number '%s' (fields count from 1)", optarg);
            break;
        case 'S':
            if (!parse_size(optarg, options.budget))
                return usage_error("invalid buffer size '%s'", optarg);
            break;
        default: return option_error(option, argv);
        }
    }
    if (spec == nullptr) return usage_error("missing -l LOCALE");
    Locale locale;
    if (!locale.load(spec)) return kDataError;
    Output out;
    Sorter sorter(locale, locale_codeset(spec), options, out);
    int status = for_each_input(argc - optind, argv + optind, [&](std::FILE *stream, const char *name) {
        return sorter.add_input(stream, name);
    });
    // All input is read (into memory or run files) before the output is opened.
    if (output != nullptr && !out.open(output)) return kDataError;
    // An unreadable file is reported and the rest is still sorted; a failed run file is not.
    const int sorted = sorter.finish();
    status = std::max(status, sorted);
    if (!out.finish()) status = kDataError;
    return status;
}

} // namespace nus_cli
