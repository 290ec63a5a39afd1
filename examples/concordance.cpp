// Prints every word of some texts in ascending order, with its count and the lines that have it.
//
// The map owns its keys (std::string) and its values (Uses) and releases them by its destructors.

#include <getopt.h>
#include <qv/base/qv_btree.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const char usage[] =
    "Usage: concordance [OPTION]... [FILE]...\n"
    "Print every word of the FILEs in ascending order: word, count, line numbers.\n"
    "With no FILE, or where FILE is -, read standard input. (With no FILE, ./dev demo\n"
    "gives it a licence text.)\n"
    "\n"
    "      --prefix P   only words that begin with P\n"
    "      --from W     only words from W on\n"
    "      --until W    only words before W\n"
    "      --limit N    at most N words\n"
    "      --counts     no line numbers\n"
    "      --help       print this text and exit\n"
    "\n"
    "A word is a run of letters, folded to lower case, with inner apostrophes; bytes\n"
    "above 127 count as letters. With several FILEs each line number names its own.\n";

struct Options {
    std::string prefix;
    std::string from;
    std::string until;
    bool has_until = false;
    unsigned long long limit = std::numeric_limits<unsigned long long>::max();
    bool counts = false;
    std::vector<std::string> files;
};

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What the system's last error prevented.
std::string failure(const std::string& what) {
    return "concordance: " + what + ": " + std::strerror(errno) + '\n';
}

struct Place {
    std::size_t file;
    std::size_t line;
};

struct Uses {
    std::size_t count = 0;
    std::vector<Place> places;
};

// --- Words -----------------------------------------------------------------------------------

char fold(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool is_letter(char c) {
    return (fold(c) >= 'a' && fold(c) <= 'z') || static_cast<unsigned char>(c) > 127;
}

std::string folded(std::string text) {
    for (char& c : text) {
        c = fold(c);
    }
    return text;
}

// Returns the next word of line, from position at on, and moves at to its end; empty without one.
std::string next_word(const std::string& line, std::size_t& at) {
    while (at < line.size() && !is_letter(line[at])) {
        ++at;
    }
    const std::size_t begin = at;
    const auto letter_at = [&line](std::size_t i) { return i < line.size() && is_letter(line[i]); };
    while (letter_at(at) || (at > begin && line[at] == '\'' && letter_at(at + 1))) {
        ++at;
    }
    return folded(line.substr(begin, at - begin));
}

// --- The map ---------------------------------------------------------------------------------

const std::string& as_word(const void* key) {
    return *static_cast<const std::string*>(key);
}

int32_t compare_words(const void* a, const void* b) {
    return as_word(a).compare(as_word(b));
}

void delete_word(void* key) {
    delete static_cast<std::string*>(key);
}

void delete_uses(void* value) {
    delete static_cast<Uses*>(value);
}

using Map = std::unique_ptr<qv_btree_t, decltype(&qv_btree_free)>;

Map new_map() {
    Map words(qv_btree_new(compare_words, delete_word, delete_uses), qv_btree_free);
    if (!words) {
        throw std::bad_alloc();
    }
    return words;
}

// Returns the uses of word; a new word is inserted with none.
Uses& uses_of(qv_btree_t* words, const std::string& word) {
    if (void* stored = qv_btree_find(words, &word)) {
        return *static_cast<Uses*>(stored);
    }
    std::unique_ptr<std::string> key(new std::string(word));
    std::unique_ptr<Uses> value(new Uses);
    const std::size_t size = qv_btree_size(words);
    qv_btree_insert(words, key.get(), value.get());
    if (qv_btree_size(words) == size) {
        throw std::bad_alloc();  // Nothing was stored: both are still ours.
    }
    static_cast<void>(key.release());
    return *value.release();
}

void read_lines(qv_btree_t* words, std::istream& in, std::size_t file) {
    std::string line;
    for (std::size_t number = 1; std::getline(in, line); ++number) {
        std::size_t at = 0;
        for (std::string word = next_word(line, at); !word.empty(); word = next_word(line, at)) {
            Uses& uses = uses_of(words, word);
            ++uses.count;
            if (uses.places.empty() || uses.places.back().file != file ||
                uses.places.back().line != number) {
                uses.places.push_back({file, number});
            }
        }
    }
}

// Returns whether the file could be read; if not, says why not.
bool read_file(qv_btree_t* words, const Options& options, std::size_t file) {
    const std::string& name = options.files[file];
    errno = 0;
    std::ifstream opened;
    std::istream& in = name == "-" ? std::cin : opened;
    try {
        in.exceptions(std::ios::badbit);
        if (name != "-") {
            opened.open(name);
        }
        if (!opened.fail()) {
            read_lines(words, in, file);
            return true;
        }
    } catch (const std::ios_base::failure&) {
        // A directory can be opened but not read: reported like a file that cannot be opened.
    }
    std::cerr << failure("cannot read " + name);
    return false;
}

// --- Output ----------------------------------------------------------------------------------

bool in_range(const std::string& word, const Options& options) {
    return word.compare(0, options.prefix.size(), options.prefix) == 0 &&
           (!options.has_until || word < options.until);
}

void write(const std::string& text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        throw std::runtime_error(failure("cannot write"));
    }
}

void print_word(const std::string& word, const Uses& uses, const Options& options) {
    write(word + '\t' + std::to_string(uses.count));
    const char* separator = "\t";
    for (const Place& place : uses.places) {
        if (options.counts) {
            break;
        }
        const bool named = options.files.size() > 1;
        write(separator + (named ? options.files[place.file] + ':' : "") +
              std::to_string(place.line));
        separator = " ";
    }
    write("\n");
}

// Walks from the first word that is asked for to the first one after the range.
void print_words(qv_btree_t* words, const Options& options) {
    const std::string& start = std::max(options.prefix, options.from);
    const void* first = qv_btree_low_bound(words, &start);
    qv_btree_node_t* node = first != nullptr ? qv_btree_find_node(words, first) : nullptr;
    for (auto left = options.limit; node != nullptr && left > 0; --left) {
        const std::string& word = as_word(qv_btree_node_key(node));
        if (!in_range(word, options)) {
            break;
        }
        print_word(word, *static_cast<const Uses*>(qv_btree_node_value(node)), options);
        node = qv_btree_next_node(node);
    }
}

// --- Command line ----------------------------------------------------------------------------

unsigned long long parse_number(const std::string& text) {
    try {
        std::size_t used = 0;
        const unsigned long long number = std::stoull(text, &used);
        if (used == text.size() && text[0] >= '0' && text[0] <= '9') {
            return number;
        }
    } catch (const std::logic_error&) {
        // Not a number at all, or out of range.
    }
    throw UsageError("not a number: '" + text + "'");
}

// Returns false when only the usage is asked for.
bool parse_options(int argc, char** argv, Options& options) {
    const option known[] = {{"prefix", required_argument, nullptr, 'p'},
                            {"from", required_argument, nullptr, 'f'},
                            {"until", required_argument, nullptr, 'u'},
                            {"limit", required_argument, nullptr, 'l'},
                            {"counts", no_argument, nullptr, 'c'},
                            {"help", no_argument, nullptr, 'h'},
                            {nullptr, 0, nullptr, 0}};
    for (int found = 0; (found = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (found) {
            case 'p':
                options.prefix = folded(optarg);
                break;
            case 'f':
                options.from = folded(optarg);
                break;
            case 'u':
                options.until = folded(optarg);
                options.has_until = true;
                break;
            case 'l':
                options.limit = parse_number(optarg);
                break;
            case 'c':
                options.counts = true;
                break;
            case 'h':
                return false;
            default:
                throw UsageError("");  // getopt_long has said what is wrong.
        }
    }
    options.files.assign(argv + optind, argv + argc);
    if (options.files.empty()) {
        options.files.push_back("-");
    }
    return true;
}

// Returns whether all files could be read.
bool run(int argc, char** argv) {
    Options options;
    bool read_all = true;
    if (!parse_options(argc, argv, options)) {
        write(usage);
    } else {
        const Map words = new_map();
        for (std::size_t file = 0; file < options.files.size(); ++file) {
            read_all = read_file(words.get(), options, file) && read_all;
        }
        print_words(words.get(), options);
    }
    if (std::fflush(stdout) != 0) {
        throw std::runtime_error(failure("cannot write"));
    }
    return read_all;
}

}  // namespace

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    try {
        return run(argc, argv) ? 0 : 1;
    } catch (const UsageError& error) {
        if (*error.what() != '\0') {
            std::cerr << "concordance: " << error.what() << '\n';
        }
        std::cerr << usage;
        return 2;
    } catch (const std::bad_alloc&) {
        std::cerr << "concordance: out of memory\n";
    } catch (const std::exception& error) {
        std::cerr << error.what();
    }
    return 1;
}
