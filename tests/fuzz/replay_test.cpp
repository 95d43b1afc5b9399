// Every fuzz target, run on every input saved under tests/data/fuzz/<target>/: the inputs
// that once made a target fail (and a few that reach its checks), kept as regression tests
// of the ordinary suite and of the sanitizer run.
#include "fuzz/fuzz.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace fs = std::filesystem;

namespace {

const fs::path kSaved = fs::path(NUS_SOURCE_DIR) / "tests" / "data" / "fuzz";

std::string contents(const fs::path &file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<fs::path> saved_inputs(const fs::path &root, const std::string &target) {
    std::vector<fs::path> inputs;
    if (!fs::is_directory(root / target)) return inputs;
    for (const auto &e : fs::directory_iterator(root / target))
        if (e.is_regular_file()) inputs.push_back(e.path());
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

// Runs every target on every input under root/<target>/; returns how many ran.
size_t replay_all(const fs::path &root) {
    size_t replayed = 0;
    for (const nus_fuzz::Target &target : nus_fuzz::targets()) {
        for (const fs::path &input : saved_inputs(root, target.name)) {
            SCOPED_TRACE(input.string());
            const std::string bytes = contents(input);
            EXPECT_NO_THROW(target.entry(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()));
            ++replayed;
        }
    }
    return replayed;
}

} // namespace

TEST(FuzzReplay, SavedInputsPassEveryTarget) {
    ASSERT_FALSE(nus_fuzz::targets().empty());
    EXPECT_GT(replay_all(kSaved), 0u);
}

// NUS_FUZZ_CORPUS names a folder with one corpus folder per target, such as build/fuzz/work
// after `make fuzz`: every input in it goes through this program's targets. The fuzzers run
// in a 64-bit clang tree; this is how the 32-bit build meets what they found.
TEST(FuzzReplay, CorpusNamedByTheEnvironment) {
    const char *root = std::getenv("NUS_FUZZ_CORPUS");
    if (root == nullptr || *root == '\0') GTEST_SKIP() << "NUS_FUZZ_CORPUS is not set";
    ASSERT_TRUE(fs::is_directory(root)) << root;
    const size_t replayed = replay_all(root);
    EXPECT_GT(replayed, 0u) << "no input for any target of this program under " << root;
    std::printf("replayed %zu inputs from %s\n", replayed, root);
}

// A folder of saved inputs whose name matches no target would never be replayed. (The data
// tools' targets exist in the trees that build the tools.)
TEST(FuzzReplay, EverySavedFolderNamesATarget) {
    std::set<std::string> names = {"charmap", "locale_source", "cvdef"};
    for (const nus_fuzz::Target &target : nus_fuzz::targets()) names.insert(target.name);
    ASSERT_TRUE(fs::is_directory(kSaved));
    for (const auto &e : fs::directory_iterator(kSaved)) {
        EXPECT_TRUE(e.is_directory() && names.count(e.path().filename().string()) == 1)
            << e.path();
    }
}
