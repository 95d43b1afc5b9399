// Validation caches: tries of a locale's strings folded to lower case, searched for the
// shortest cached string that starts some input without regard to case. The byte trie is keyed
// by the bytes of the folded multibyte text, the wide trie by folded wide characters.
//
// Each position of a trie is a chain of alternatives linked "down"; a node's "across" link is
// the chain of the position after it.
#include "chars/chars.h"

namespace {

constexpr int kFoldMax = 2 * MULTI_MAX_DEPTH;

// Whether the rest of a multibyte string is its terminator.
bool at_terminator(const unsigned char *s, int m) {
    for (int i = 0; i < m; ++i) {
        if (s[i] != 0) return false;
    }
    return true;
}

// The character at s folded to lower case into out; its input length * 256 + its output
// length, or 0 when it cannot be folded (error stored).
int fold_mb(nu_locale_rec *h, unsigned char *out, const unsigned char *s) {
    if (h->sb_lower != nullptr) {
        out[0] = h->sb_lower[s[0]];
        return 256 + 1;
    }
    const int packed = _nu_im_tomlower(h, out, s);
    if (packed <= 0 || (packed & 0xFF) == 0 || (packed & 0xFF) > kFoldMax) return 0;
    return packed;
}

// A wide character folded to lower case. A single-byte handle folds below 256 only; a wider
// character keeps its value and sets error 1, and lookups go on with it.
nu_wchar fold_wide(nu_locale_rec *h, nu_wchar wc) {
    if (h->sb_lower != nullptr) {
        if (wc < 256) return h->sb_lower[wc];
        nus::set_error(h, NU_EILSEQ);
        return wc;
    }
    return _nu_im_towlower(h, wc);
}

// The node with `key` in the chain at *chain, appended with that key when the chain has none;
// null when memory runs out (error 3 stored).
template <typename Node, typename Key>
Node *find_or_add(nu_locale_rec *h, Node **chain, Key key) {
    Node **link = chain;
    for (Node *n = *chain; n != nullptr; n = n->down) {
        if (n->key == key) return n;
        link = &n->down;
    }
    Node *n = nus::alloc_zeroed<Node>(1);
    if (n == nullptr) {
        nus::set_error(h, NU_ENOMEM);
        return nullptr;
    }
    n->key = key;
    *link = n;
    return n;
}

template <typename Node, typename Key>
const Node *find(const Node *chain, Key key) {
    while (chain != nullptr && chain->key != key) chain = chain->down;
    return chain;
}

// Marks the end of a cached string; inserting a string again overwrites its value.
template <typename Node>
int mark(Node *node, uint32_t value) {
    node->terminal = 1;
    node->value = value;
    return 0;
}

// The entry of the empty string: a terminal node of key 0 in the first position.
template <typename Node>
int empty_entry(const Node *root, int *len, uint32_t *value) {
    for (const Node *n = root; n != nullptr; n = n->down) {
        if (n->key == 0 && n->terminal) {
            *len = 0;
            *value = n->value;
            return 0;
        }
    }
    return -1;
}

// Across subtree, down subtree, then the node itself. The depth is bounded by the length of
// the longest string plus the alternatives at one position.
template <typename Node>
void free_trie(Node *node) {
    if (node == nullptr) return;
    free_trie(node->across);
    free_trie(node->down);
    _nu_free_ptr(node);
}

} // namespace

NU_EXPORT int _nu_cache_mb_string(nu_locale_t h, nu_mb_cache_node **root,
                                  const unsigned char *s, uint32_t value) {
    if (nus::no_handle(h)) return -1;
    if (root == nullptr || s == nullptr) return -1;
    const int m = nu_mb_loc_min(h);
    if (at_terminator(s, m)) {
        // One node of key 0 whatever the terminator's length: where lookups look for it.
        nu_mb_cache_node *node = find_or_add(h, root, uint8_t{0});
        return node != nullptr ? mark(node, value) : -1;
    }
    nu_mb_cache_node **chain = root;
    nu_mb_cache_node *node = nullptr;
    while (!at_terminator(s, m)) {
        unsigned char folded[kFoldMax];
        const int packed = fold_mb(h, folded, s);
        if (packed == 0) return -1;
        const int written = packed & 0xFF;
        for (int i = 0; i < written; ++i) {
            node = find_or_add(h, chain, uint8_t{folded[i]});
            if (node == nullptr) return -1;
            chain = &node->across;
        }
        s += packed >> 8;
    }
    return mark(node, value);
}

NU_EXPORT int _nu_cache_wc_string(nu_locale_t h, nu_wc_cache_node **root,
                                  const unsigned char *s, uint32_t value) {
    if (nus::no_handle(h)) return -1;
    if (root == nullptr || s == nullptr) return -1;
    const int m = nu_mb_loc_min(h);
    const bool single = h->single_byte != 0;
    nu_wc_cache_node **chain = root;
    // The first character is taken even when it is the null character: that makes the entry
    // of the empty string.
    for (;;) {
        nu_wchar wc;
        int used;
        if (single) {
            wc = s[0];
            used = 1;
        } else {
            used = nu_full_mbtowc(h, &wc, s, MULTI_MAX_DEPTH);
            if (used < 0) return -1;
            if (used == 0) used = m;   // the null character
        }
        nu_wc_cache_node *node = find_or_add(h, chain, fold_wide(h, wc));
        if (node == nullptr) return -1;
        s += used;
        if (wc == 0 || at_terminator(s, m)) return mark(node, value);
        chain = &node->across;
    }
}

// The shortest cached string that starts s, compared folded; else the empty entry. A
// character that cannot be folded ends the search as a mismatch does (its error stays set).
NU_EXPORT int _nu_validate_mb_string(nu_locale_t h, const nu_mb_cache_node *root,
                                     const unsigned char *s, int *len, uint32_t *value) {
    if (nus::no_handle(h)) return -1;
    if (root == nullptr || s == nullptr) return -1;
    const int m = nu_mb_loc_min(h);
    const nu_mb_cache_node *chain = root;
    int consumed = 0;
    while (chain != nullptr && !at_terminator(s + consumed, m)) {
        unsigned char folded[kFoldMax];
        const int packed = fold_mb(h, folded, s + consumed);
        if (packed == 0) break;
        const int written = packed & 0xFF;
        // The bytes of one character, moving across between them.
        const nu_mb_cache_node *node = nullptr;
        int matched = 0;
        for (; matched < written; ++matched) {
            node = find(chain, uint8_t{folded[matched]});
            if (node == nullptr) break;
            chain = node->across;
        }
        if (matched < written) break;
        consumed += packed >> 8;
        if (node->terminal) {
            *len = consumed;
            *value = node->value;
            return 0;
        }
    }
    return empty_entry(root, len, value);
}

NU_EXPORT int _nu_validate_wc_string(nu_locale_t h, const nu_wc_cache_node *root,
                                     const nu_wchar *ws, int *len, uint32_t *value) {
    if (nus::no_handle(h)) return -1;
    if (root == nullptr || ws == nullptr) return -1;
    const nu_wc_cache_node *chain = root;
    for (int i = 0; chain != nullptr && ws[i] != 0; ++i) {
        const nu_wc_cache_node *node = find(chain, fold_wide(h, ws[i]));
        if (node == nullptr) break;
        if (node->terminal) {
            *len = i + 1;
            *value = node->value;
            return 0;
        }
        chain = node->across;
    }
    return empty_entry(root, len, value);
}

NU_EXPORT void _nu_free_mb_cache(nu_locale_t, nu_mb_cache_node *root) { free_trie(root); }
NU_EXPORT void _nu_free_wc_cache(nu_locale_t, nu_wc_cache_node *root) { free_trie(root); }
