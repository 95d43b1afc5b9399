// The data-file search: turns a data-file name into an open stream by trying NU_PATH, or the
// installation root's nus/<kind><version> and nus/<kind> directories.
#include "frame/frame.h"

#include <cstdlib>

namespace {

constexpr unsigned char kPathCookie = 0xFF;   // stands for "/" in a name
constexpr size_t kMaxRootLength = 256;
constexpr size_t kPathBufferSize = 1024;

// The memory and open functions of one search: the external ones, or the standard library's
// for callers that run before or outside the external-function table.
struct Io {
    bool plain;

    void *alloc(size_t size) const { return plain ? std::malloc(size) : _nu_alloc_ptr(size); }
    void release(void *p) const {
        if (p == nullptr) return;
        if (plain) std::free(p);
        else _nu_free_ptr(p);
    }
    FILE *open(const char *path) const {
        return plain ? std::fopen(path, "r") : _nu_ext_fopen(path, "r");
    }
    void close(FILE *stream) const {
        if (plain) std::fclose(stream);
        else _nu_ext_fclose(stream);
    }
};

// Text of at most kPathBufferSize bytes on the stack; longer text gets a buffer of its
// exact size from the search's allocator.
class PathText {
public:
    PathText(const Io &io, size_t length) : io_(io) {
        if (length + 1 > kPathBufferSize) heap_ = static_cast<char *>(io.alloc(length + 1));
    }
    PathText(const PathText &) = delete;
    PathText &operator=(const PathText &) = delete;
    ~PathText() { io_.release(heap_); }
    char *data() { return heap_ != nullptr ? heap_ : local_; }
    bool ok(size_t length) const { return length + 1 <= kPathBufferSize || heap_ != nullptr; }

private:
    const Io &io_;
    char *heap_ = nullptr;
    char local_[kPathBufferSize];
};

// Reports one attempt through the log, with a message buffer of the path's length plus 16
// and its terminating zero ("Could not open: " alone takes the 16).
void report(const Io &io, bool opened, const char *path) {
    const size_t path_length = std::strlen(path);
    const size_t length = path_length + 16 + 1;
    char local[kPathBufferSize];
    char *text = length <= sizeof local ? local : static_cast<char *>(io.alloc(length));
    if (text == nullptr) return;
    const char *prefix = opened ? "Opened: " : "Could not open: ";
    const size_t prefix_length = std::strlen(prefix);
    std::memcpy(text, prefix, prefix_length);
    std::memcpy(text + prefix_length, path, path_length + 1);
    nu_message(text);
    if (text != local) io.release(text);
}

// A copy of `text` (length bytes) in memory from the search's allocator.
char *copy_text(const Io &io, const char *text, size_t length) {
    char *copy = static_cast<char *>(io.alloc(length + 1));
    if (copy != nullptr) {
        std::memcpy(copy, text, length);
        copy[length] = '\0';
    }
    return copy;
}

// The outcome of one search.
struct Found {
    FILE *stream = nullptr;
    char *directory = nullptr;   // from the search's allocator, when asked for
    int error = 0;               // NU_ENOMEM or NU_ENOFILE when nothing was opened
};

// Opens dir_length bytes of `dir`, "/" and `name`; that directory is the one reported.
// Returns true when the search is over: the file opened, or memory ran out.
bool attempt(const Io &io, Found &found, bool want_dir, const char *dir, size_t dir_length,
             const char *name) {
    const size_t name_length = std::strlen(name);
    const size_t length = dir_length + 1 + name_length;
    PathText path(io, length);
    if (!path.ok(length)) {
        found.error = NU_ENOMEM;
        return true;
    }
    std::memcpy(path.data(), dir, dir_length);
    path.data()[dir_length] = '/';
    std::memcpy(path.data() + dir_length + 1, name, name_length + 1);
    found.stream = io.open(path.data());
    report(io, found.stream != nullptr, path.data());
    if (found.stream == nullptr) return false;
    if (want_dir) {
        found.directory = copy_text(io, dir, dir_length);
        if (found.directory == nullptr) {
            io.close(found.stream);
            found.stream = nullptr;
            found.error = NU_ENOMEM;
        }
    }
    return true;
}

// Tries <base><after_root><subdir><version>/<name>.
bool attempt_under_root(const Io &io, Found &found, bool want_dir, const char *base,
                        const char *after_root, const char *subdir, const char *version,
                        const char *name) {
    const size_t length =
        std::strlen(base) + std::strlen(after_root) + std::strlen(subdir) + std::strlen(version);
    PathText dir(io, length);
    if (!dir.ok(length)) {
        found.error = NU_ENOMEM;
        return true;
    }
    // Joined by hand: a formatted print costs more than the open it prepares.
    char *out = dir.data();
    for (const char *part : {base, after_root, subdir, version}) {
        const size_t n = std::strlen(part);
        std::memcpy(out, part, n);
        out += n;
    }
    *out = '\0';
    return attempt(io, found, want_dir, dir.data(), length, name);
}

// Length of the directory part of a path: up to its last separator, or 0.
size_t dirname_length(const char *path, char separator = '/') {
    const char *slash = std::strrchr(path, separator);
    return slash == nullptr ? 0 : static_cast<size_t>(slash - path);
}

Found search(const char *name, bool want_dir, const char *subdir,
             const char *version, bool plain) {
    const Io io{plain};
    Found found;
    const char *root = _nu_get_env_var("TESSARONDIR");
    if (root != nullptr && std::strlen(root) > kMaxRootLength) {
        nu_message("Environment variable TESSARONDIR cannot be greater than 256 characters");
        found.error = NU_ENOFILE;
        return found;
    }
    if (name == nullptr) {
        found.error = NU_EBADARG;
        return found;
    }

    if (std::strchr(name, static_cast<char>(kPathCookie)) != nullptr) {
        found.stream = nu_open_file(nullptr, name);
        if (found.stream == nullptr) {
            found.error = NU_ENOFILE;
        } else if (want_dir) {
            found.directory =
                copy_text(io, name, dirname_length(name, static_cast<char>(kPathCookie)));
            if (found.directory != nullptr) {
                for (char *p = found.directory; *p != '\0'; ++p) {
                    if (static_cast<unsigned char>(*p) == kPathCookie) *p = '/';
                }
            } else {
                _nu_ext_fclose(found.stream);
                found.stream = nullptr;
                found.error = NU_ENOMEM;
            }
        }
        return found;
    }

    if (name[0] == '/') {
        const size_t dir_length = dirname_length(name);
        if (!attempt(io, found, want_dir, name, dir_length, name + dir_length + 1))
            found.error = NU_ENOFILE;
        return found;
    }

    // NU_PATH, when set, is the only place searched.
    const char *path_list = std::getenv("NU_PATH");
    if (path_list != nullptr && path_list[0] != '\0') {
        const char *entry = path_list;
        for (;;) {
            const char *end = std::strchr(entry, ':');
            const size_t entry_length = end != nullptr ? static_cast<size_t>(end - entry)
                                                       : std::strlen(entry);
            if (entry_length > 0 && attempt(io, found, want_dir, entry, entry_length, name))
                return found;
            if (end == nullptr) break;
            entry = end + 1;
        }
        found.error = NU_ENOFILE;
        return found;
    }

    // The installation root: nus/<subdir><version>, then nus/<subdir>.
    const char *base = root != nullptr ? root : nus::kDefaultRoot;
    const char *after_root = root != nullptr ? "/nus/" : "nus/";
    if (subdir == nullptr) subdir = "";
    if (version != nullptr && version[0] != '\0' &&
        attempt_under_root(io, found, want_dir, base, after_root, subdir, version, name))
        return found;
    if (attempt_under_root(io, found, want_dir, base, after_root, subdir, "", name))
        return found;
    found.error = NU_ENOFILE;
    return found;
}

} // namespace

NU_EXPORT char *_nu_get_env_var(const char *name) {
    char *value = _nu_ext_getenv(name);
    return value != nullptr && value[0] != '\0' ? value : nullptr;
}

namespace nus {
bool has_path_cookie(const char *name) {
    return name != nullptr && std::strchr(name, static_cast<char>(kPathCookie)) != nullptr;
}
} // namespace nus

NU_EXPORT FILE *nu_open_file(void *handle, const char *name) {
    if (name == nullptr) {
        nus::set_error_if(handle, NU_EBADARG);
        return nullptr;
    }
    const size_t length = std::strlen(name);
    nus::Scratch<char, kPathBufferSize> path(length + 1);
    if (!path.ok()) {
        nus::set_error_if(handle, NU_ENOMEM);
        return nullptr;
    }
    for (size_t i = 0; i <= length; ++i) {
        const auto c = static_cast<unsigned char>(name[i]);
        path.data()[i] = c == kPathCookie ? '/' : static_cast<char>(c);
    }
    FILE *stream = _nu_ext_fopen(path.data(), "r");
    nus::messagef(stream != nullptr ? "Opened: %s" : "Could not open: %s", path.data());
    if (stream == nullptr) nus::set_error_if(handle, NU_ENOFILE);
    return stream;
}

NU_EXPORT FILE *nu_path_search1(void *handle, const char *name, char **directory,
                                const char *subdir, const char *version, int plain) {
    Found found = search(name, directory != nullptr, subdir, version, plain != 0);
    if (found.stream == nullptr) nus::set_error_if(handle, found.error);
    if (directory != nullptr) *directory = found.directory;
    return found.stream;
}

NU_EXPORT FILE *nu_path_search(void *handle, const char *name, const char *subdir,
                               const char *version) {
    return nu_path_search1(handle, name, nullptr, subdir, version, 0);
}

NU_EXPORT FILE *nu_path_search_no_ext(void *handle, const char *name, const char *subdir,
                                      const char *version) {
    return nu_path_search1(handle, name, nullptr, subdir, version, 1);
}

namespace {
char *search_directory(char **directory, void *handle, const char *name, const char *subdir,
                       const char *version, bool plain) {
    char *dir = nullptr;
    FILE *stream = nu_path_search1(handle, name, &dir, subdir, version, plain ? 1 : 0);
    if (stream != nullptr) Io{plain}.close(stream);
    if (directory != nullptr) *directory = dir;
    return dir;
}
} // namespace

NU_EXPORT char *nu_path_search_rpath(char **directory, void *handle, const char *name,
                                     const char *subdir, const char *version) {
    return search_directory(directory, handle, name, subdir, version, false);
}

NU_EXPORT char *nu_path_search_no_ext_rpath(char **directory, void *handle, const char *name,
                                            const char *subdir, const char *version) {
    return search_directory(directory, handle, name, subdir, version, true);
}
