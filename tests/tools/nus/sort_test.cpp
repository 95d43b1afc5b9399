// nus sort: collation order on the generated locales, options, errors, and large inputs
// sorted through run files with a tiny memory budget against the same lines sorted in memory.
#include "tools/nus/nus_run.h"
#include "support/support.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

using nus_test::nus;
using nus_test::lines;

namespace {

// Deterministic lines "WORD NUMBER INDEX": words with and without umlauts and case variants,
// numbers that repeat (equal fields for -k 2), and the input index to check stability.
std::string generated_lines(int count) {
    static const char *const kWords[] = {
        "Apfel", "apfel", "\xC3\x84pfel", "\xC3\xA4pfel", "Birne", "B\xC3\xBChne", "Stra\xC3\x9F" "e",
        "Strasse", "zebra", "Zebra", "\xC3\x96l", "Ol", "\xC3\xBC" "ber", "Uber", "Mu\xC3\x9F",
        "Muss", "Kase", "K\xC3\xA4se", "ka", "K", "", "a-b", "ab", "a b"};
    const int words = sizeof kWords / sizeof *kWords;
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += kWords[(i * 7 + i / words) % words];
        text += ' ' + std::to_string((i * 7919) % 97) + ' ' + std::to_string(i) + '\n';
    }
    return text;
}

// The "KEY<tab>LINE" lines of --keys output.
std::vector<std::pair<std::string, std::string>> keyed(const std::string &out) {
    std::vector<std::pair<std::string, std::string>> rows;
    for (const std::string &line : lines(out)) {
        const auto tab = line.find('\t');
        rows.emplace_back(line.substr(0, tab), tab == std::string::npos ? "" : line.substr(tab + 1));
    }
    return rows;
}

} // namespace

TEST(NusSort, CollationOrderAndOptions) {
    // Latin-1 input in de_de.8859-1: case and umlauts break ties after the base letters.
    const std::string words = "Zebra\napfel\n\xC4pfel\nApfel\nzebra\n\xE4pfel\n\xD6l\nOl\n";
    auto r = nus({"sort", "-l", "de_de.8859-1"}, words);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, "apfel\nApfel\n\xE4pfel\n\xC4pfel\nOl\n\xD6l\nzebra\nZebra\n");
    r = nus({"sort", "-r", "-l", "de_de.8859-1"}, words);
    EXPECT_EQ(r.out, "Zebra\nzebra\n\xD6l\nOl\n\xC4pfel\n\xE4pfel\nApfel\napfel\n");

    // -k: the second blank-separated field; equal fields keep input order, also reversed; a
    // line without the field sorts as empty; leading blanks do not make an empty first field.
    const std::string fields = "b 2 x\n a\t1\nc   2\nd 1\ne\n";
    r = nus({"sort", "-l", "en_us.utf8", "-k", "2"}, fields);
    EXPECT_EQ(r.out, "e\n a\t1\nd 1\nb 2 x\nc   2\n");
    r = nus({"sort", "-l", "en_us.utf8", "-k", "2", "-r"}, fields);
    EXPECT_EQ(r.out, "b 2 x\nc   2\n a\t1\nd 1\ne\n");
    r = nus({"sort", "-l", "en_us.utf8", "--field=2", "-u"}, fields);
    EXPECT_EQ(r.out, "e\n a\t1\nb 2 x\n");

    // -u keeps the first of lines with equal keys only: case variants differ in their key.
    r = nus({"sort", "-u", "-l", "de_de.utf8"}, "b\nB\nb\na\nb\n");
    EXPECT_EQ(r.out, "a\nb\nB\n");

    // --keys: the key in hexadecimal, a tab, the line; keys ascend bytewise, and case
    // variants share the primary level (everything before the first level separator 01).
    r = nus({"sort", "--keys", "-l", "de_de.utf8"}, "Apfel\napfel\nbirne\n");
    ASSERT_EQ(r.status, 0);
    const auto rows = keyed(r.out);
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].second, "apfel");
    EXPECT_EQ(rows[1].second, "Apfel");
    EXPECT_EQ(rows[2].second, "birne");
    for (const auto &[key, line] : rows) {
        EXPECT_EQ(key.find_first_not_of("0123456789abcdef"), std::string::npos) << key;
        EXPECT_EQ(key.size() % 2, 0u);
    }
    EXPECT_LT(rows[0].first, rows[1].first);
    EXPECT_LT(rows[1].first, rows[2].first);
    auto primary = [](const std::string &hex) {
        for (size_t i = 0; i + 1 < hex.size(); i += 2)
            if (hex.compare(i, 2, "01") == 0) return hex.substr(0, i);
        return hex;
    };
    EXPECT_EQ(primary(rows[0].first), primary(rows[1].first));
    EXPECT_NE(primary(rows[1].first), primary(rows[2].first));
}

TEST(NusSort, InputsInvalidLinesAndErrors) {
    // Files and standard input are one stream of lines; a last line without a newline gets one.
    nus_test::TempDir dir;
    const auto a = dir.write("a.txt", "pear\nfig").string();
    const auto b = dir.write("b.txt", "apple\n").string();
    auto r = nus({"sort", "-l", "en_us.8859-1", a, "-", b}, "kiwi\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "apple\nfig\nkiwi\npear\n");
    EXPECT_EQ(nus({"sort", "-l", "en_us.8859-1"}, "pear\nfig\nkiwi\napple").out, r.out);

    // A line that is not valid in the code set is reported and sorts first, by its bytes.
    r = nus({"sort", "-l", "en_us.utf8"}, "b\nok \xFF x\na\n\xC3\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "ok \xFF x\n\xC3\na\nb\n");
    EXPECT_EQ(r.err, "nus: sort: line 2, byte 4: invalid sequence 0xFF in utf8; such lines sort "
                     "first, by their bytes\n"
                     "nus: sort: 2 lines were not valid in utf8\n");

    // A missing file is reported; the lines of the others are still sorted.
    const std::string missing = dir.str() + "/missing";
    r = nus({"sort", "-l", "en_us.utf8", b, missing, a});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "apple\nfig\npear\n");
    EXPECT_EQ(r.err, "nus: sort: " + missing + ": No such file or directory\n");

    r = nus({"sort", "-l", "xx_yy.utf8"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "nus: sort: cannot load locale 'xx_yy.utf8' from " NUS_DATA_DIR
                     ": NU_ENOFILE (data file not found)\n");

    r = nus({"sort"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "nus: sort: missing -l LOCALE\nTry 'nus sort --help'.\n");
    r = nus({"sort", "-l", "en_us.utf8", "-k", "0"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "nus: sort: invalid field number '0' (fields count from 1)\n"
                     "Try 'nus sort --help'.\n");
    r = nus({"sort", "-l", "en_us.utf8", "-S", "12Q"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "nus: sort: invalid buffer size '12Q'\nTry 'nus sort --help'.\n");
    r = nus({"sort", "--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.out.find("-S, --buffer-size=SIZE"), std::string::npos);
}

// Thousands of runs of a few lines each, merged in several passes, give exactly the in-memory
// result; the order is stable; the run files are gone afterwards.
TEST(NusSort, RunFilesAndMergeMatchTheInMemorySort) {
    const std::string input = generated_lines(4000);
    nus_test::TempDir tmp;
    const std::vector<std::string> env{"TMPDIR=" + tmp.str()};
    const std::vector<std::vector<std::string>> variants = {
        {}, {"-u"}, {"-r"}, {"-k", "2"}, {"-k", "2", "-r", "-u"}, {"--keys", "-k", "1"}};
    for (const auto &variant : variants) {
        std::vector<std::string> args{"sort", "-l", "de_de.utf8"};
        args.insert(args.end(), variant.begin(), variant.end());
        const auto memory = nus(args, input, env);
        ASSERT_EQ(memory.status, 0) << memory.err;
        args.insert(args.end(), {"-S", "2K"});
        const auto runs = nus(args, input, env);
        ASSERT_EQ(runs.status, 0) << runs.err;
        EXPECT_EQ(runs.out, memory.out);
        EXPECT_EQ(runs.err, "");
        EXPECT_TRUE(std::filesystem::is_empty(tmp.path()));
    }

    // Keys never descend, and lines with equal keys (equal second fields) keep input order.
    const auto r = nus({"sort", "-l", "de_de.utf8", "--keys", "-k", "2", "-S", "1K"}, input, env);
    const auto rows = keyed(r.out);
    ASSERT_EQ(rows.size(), 4000u);
    for (size_t i = 1; i < rows.size(); ++i) {
        ASSERT_LE(rows[i - 1].first, rows[i].first) << i;
        if (rows[i - 1].first == rows[i].first) {
            const auto index = [](const std::string &line) {
                return std::stol(line.substr(line.rfind(' ') + 1));
            };
            ASSERT_LT(index(rows[i - 1].second), index(rows[i].second)) << rows[i].second;
        }
    }

    // -o may name an input: it is opened once all input is read, in memory or in run files.
    nus_test::TempDir dir;
    const auto memory = nus({"sort", "-l", "de_de.utf8"}, input, env).out;
    for (const char *budget : {"256M", "2K"}) {
        const auto same = dir.write("same.txt", input).string();
        const auto r = nus({"sort", "-l", "de_de.utf8", "-S", budget, "-o", same, same}, {}, env);
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(nus_test::read_file(same), memory) << budget;
    }
    const auto unwritable = nus({"sort", "-l", "de_de.utf8", "--output", dir.str()}, "b\na\n", env);
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_EQ(unwritable.err, "nus: sort: cannot write " + dir.str() + ": Is a directory\n");

    // A run file that cannot be made ends the sort with a message and no output.
    const auto file = dir.write("input.txt", input).string();
    const auto broken = nus({"sort", "-l", "de_de.utf8", "-S", "1K", file}, {},
                            {"TMPDIR=" + tmp.str() + "/missing"});
    EXPECT_EQ(broken.status, 1);
    EXPECT_EQ(broken.out, "");
    EXPECT_EQ(broken.err, "nus: sort: cannot make a run file in " + tmp.str() +
                              "/missing: No such file or directory\n");
}

// Progress goes to stderr only when it is a terminal (the other tests see an empty stderr
// through a pipe), and the progress line is cleared at the end.
TEST(NusSort, ProgressOnATerminal) {
    nus_test::TempDir dir;
    const std::string input = dir.write("input.txt", generated_lines(400)).string();
    int master = -1, slave = -1;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(slave, 2);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        close(master);
        setenv("TESSARONDIR", NUS_DATA_DIR, 1);
        setenv("TMPDIR", dir.str().c_str(), 1);
        execl(NUS_TOOL, NUS_TOOL, "sort", "-l", "de_de.utf8", "-S", "1K", input.c_str(),
              static_cast<char *>(nullptr));
        _exit(127);
    }
    close(slave);
    std::string err;
    char buffer[4096];
    for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;) err.append(buffer, n);
    close(master);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_NE(err.find("\rnus: sort: read 400 lines, "), std::string::npos) << err;
    EXPECT_NE(err.find("\rnus: sort: merging 400 lines, "), std::string::npos) << err;
    ASSERT_GE(err.size(), 4u);
    EXPECT_EQ(err.substr(err.size() - 4), "\r\033[K");
}
