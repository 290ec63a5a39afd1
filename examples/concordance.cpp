// Prints every word of some texts in ascending order, with its count and the lines that have it.
//
// The map owns its keys (std::string) and its values (Uses) and releases them by its destructors.

#include <getopt.h>
#include <qv/base/qv_btree.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

const char usage[] =
    "Usage: concordance [OPTION]... [FILE]...\n"
    "Print every word of the FILEs in ascending order: word, count, line numbers.\n"
    "With no FILE, or where FILE is -, read standard input.\n"
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

using Place = std::pair<std::size_t, std::size_t>;  // file and line

struct Uses {
    std::size_t count = 0;
    std::vector<Place> places;
};

// What the system's last error prevented.
std::string failure(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

// --- The map ---------------------------------------------------------------------------------

const std::string& as_word(const void* key) {
    return *static_cast<const std::string*>(key);
}

int32_t compare_words(const void* a, const void* b) {
    return as_word(a).compare(as_word(b));
}

template <typename T>
void destroy(void* object) {
    delete static_cast<T*>(object);
}

using Map = std::unique_ptr<qv_btree_t, decltype(&qv_btree_free)>;

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

// --- Input -----------------------------------------------------------------------------------

char fold(int c) {
    return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

bool is_letter(int c) {
    return (fold(c) >= 'a' && fold(c) <= 'z') || c > 127;
}

std::string folded(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), fold);
    return text;
}

// Counts the words of a file. Returns whether it could be read; if not, says why not.
bool read_file(qv_btree_t* words, const Options& options, std::size_t file) {
    const std::string& name = options.files[file];
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(
        name == "-" ? nullptr : std::fopen(name.c_str(), "r"), std::fclose);
    std::FILE* const in = name == "-" ? stdin : opened.get();
    std::string word;
    bool apostrophe = false;
    Place place(file, 1);
    for (int c = 0; in != nullptr && c != EOF;) {
        c = std::getc(in);
        if (is_letter(c)) {
            word += apostrophe ? "'" : "";
            word += fold(c);
            apostrophe = false;
        } else if (c == '\'' && !word.empty() && !apostrophe) {
            apostrophe = true;  // It belongs to the word if a letter follows.
        } else {
            if (!word.empty()) {
                Uses& uses = uses_of(words, word);
                ++uses.count;
                if (!options.counts && (uses.places.empty() || uses.places.back() != place)) {
                    uses.places.push_back(place);
                }
            }
            word.clear();
            apostrophe = false;
            place.second += c == '\n' ? 1 : 0;
        }
    }
    if (in == nullptr || std::ferror(in) != 0) {
        std::cerr << "concordance: " << failure("cannot read " + name) << '\n';
        return false;
    }
    return true;
}

// --- Output ----------------------------------------------------------------------------------

void print_word(const std::string& word, const Uses& uses, const Options& options) {
    std::cout << word << '\t' << uses.count;
    char separator = '\t';
    for (const Place& place : uses.places) {
        const bool named = options.files.size() > 1;
        std::cout << separator << (named ? options.files[place.first] + ':' : "") << place.second;
        separator = ' ';
    }
    std::cout << '\n';
}

// Walks from the first word that is asked for to the first one after the range.
void print_words(qv_btree_t* words, const Options& options) {
    const std::string& start = std::max(options.prefix, options.from);
    const void* first = qv_btree_low_bound(words, &start);
    qv_btree_node_t* node = first != nullptr ? qv_btree_find_node(words, first) : nullptr;
    for (auto left = options.limit; node != nullptr && left > 0; --left) {
        const std::string& word = as_word(qv_btree_node_key(node));
        if (word.compare(0, options.prefix.size(), options.prefix) != 0 ||
            (options.has_until && word >= options.until)) {
            break;
        }
        print_word(word, *static_cast<const Uses*>(qv_btree_node_value(node)), options);
        node = qv_btree_next_node(node);
    }
}

// --- Command line ----------------------------------------------------------------------------

unsigned long long parse_number(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long number = std::strtoull(text.c_str(), &end, 10);
    if (text.empty() || text[0] < '0' || text[0] > '9' || *end != '\0' || errno != 0) {
        throw std::invalid_argument("concordance: not a number: '" + text + "'\n");
    }
    return number;
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
        if (found == 'p') {
            options.prefix = folded(optarg);
        } else if (found == 'f') {
            options.from = folded(optarg);
        } else if (found == 'u') {
            options.until = folded(optarg);
            options.has_until = true;
        } else if (found == 'l') {
            options.limit = parse_number(optarg);
        } else if (found == 'c') {
            options.counts = true;
        } else if (found == 'h') {
            return false;
        } else {
            throw std::invalid_argument("");  // getopt_long has said what is wrong.
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
        std::cout << usage;
    } else {
        const Map words(qv_btree_new(compare_words, destroy<std::string>, destroy<Uses>),
                        qv_btree_free);
        if (!words) {
            throw std::bad_alloc();
        }
        for (std::size_t file = 0; file < options.files.size(); ++file) {
            read_all = read_file(words.get(), options, file) && read_all;
        }
        print_words(words.get(), options);
    }
    if (!std::cout.flush()) {
        throw std::runtime_error(failure("cannot write"));
    }
    return read_all;
}

}  // namespace

int main(int argc, char** argv) {
    static char name[] = "concordance";
    argv[0] = name;  // getopt_long begins its messages with it.
    try {
        return run(argc, argv) ? 0 : 1;
    } catch (const std::invalid_argument& error) {
        std::cerr << error.what() << usage;
        return 2;
    } catch (const std::bad_alloc&) {
        std::cerr << "concordance: out of memory\n";
    } catch (const std::exception& error) {
        std::cerr << "concordance: " << error.what() << '\n';
    }
    return 1;
}
