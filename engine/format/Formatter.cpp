#include "engine/format/Formatter.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <optional>
#include <sstream>

namespace sayvo {

namespace {

enum class Kind {
    word,
    mark, // . , ? ! — or a line break
};

struct Token
{
    std::string text;
    Kind kind = Kind::word;
    bool verbatim = false; // a personal-dictionary term or a formed number: never re-cased

    bool isWord() const { return kind == Kind::word; }
    bool is(std::string_view word) const { return kind == Kind::word && !verbatim && text == word; }
};

const std::string kEmDash = "\xE2\x80\x94";

std::string lower(std::string_view text)
{
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    });
    return out;
}

std::string capitalized(std::string text)
{
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') {
        text[0] = static_cast<char>(text[0] - 'a' + 'A');
    }
    return text;
}

template <std::size_t N>
bool oneOf(std::string_view word, const std::array<std::string_view, N> &set)
{
    return std::find(set.begin(), set.end(), word) != set.end();
}

// ---- number words ------------------------------------------------------------------

constexpr std::array<std::string_view, 10> kUnits
    = {"zero", "one", "two", "three", "four", "five", "six", "seven", "eight", "nine"};
constexpr std::array<std::string_view, 10> kTeens = {"ten", "eleven", "twelve", "thirteen",
    "fourteen", "fifteen", "sixteen", "seventeen", "eighteen", "nineteen"};
constexpr std::array<std::string_view, 8> kTens
    = {"twenty", "thirty", "forty", "fifty", "sixty", "seventy", "eighty", "ninety"};
constexpr std::array<std::string_view, 10> kUnitOrdinals = {
    "zeroth", "first", "second", "third", "fourth", "fifth", "sixth", "seventh", "eighth", "ninth"};
constexpr std::array<std::string_view, 10> kTeenOrdinals
    = {"tenth", "eleventh", "twelfth", "thirteenth", "fourteenth", "fifteenth", "sixteenth",
        "seventeenth", "eighteenth", "nineteenth"};
constexpr std::array<std::string_view, 8> kTensOrdinals = {"twentieth", "thirtieth", "fortieth",
    "fiftieth", "sixtieth", "seventieth", "eightieth", "ninetieth"};
constexpr std::array<std::string_view, 12> kMonths = {"january", "february", "march", "april",
    "may", "june", "july", "august", "september", "october", "november", "december"};
constexpr std::array<std::string_view, 7> kDays
    = {"monday", "tuesday", "wednesday", "thursday", "friday", "saturday", "sunday"};

int indexIn(std::string_view word, const auto &set)
{
    const auto it = std::find(set.begin(), set.end(), word);
    return it == set.end() ? -1 : static_cast<int>(it - set.begin());
}

struct Parsed
{
    long long value = 0;
    std::size_t length = 0; // tokens consumed
};

class NumberReader
{
public:
    explicit NumberReader(const std::vector<Token> &tokens) : m_tokens(tokens) { }

    std::string_view word(std::size_t i) const
    {
        if (i >= m_tokens.size() || !m_tokens[i].isWord() || m_tokens[i].verbatim) {
            return {};
        }
        return m_tokens[i].text;
    }

    int unit(std::size_t i) const { return indexIn(word(i), kUnits); }

    // 0..99 from one or two words: "seven", "fourteen", "forty", "forty two".
    std::optional<Parsed> belowHundred(std::size_t i) const
    {
        if (const int u = unit(i); u >= 0) {
            return Parsed {u, 1};
        }
        if (const int t = indexIn(word(i), kTeens); t >= 0) {
            return Parsed {10 + t, 1};
        }
        if (const int t = indexIn(word(i), kTens); t >= 0) {
            const int tens = 20 + 10 * t;
            if (const int u = unit(i + 1); u > 0) {
                return Parsed {tens + u, 2};
            }
            return Parsed {tens, 1};
        }
        return std::nullopt;
    }

    // 0..999 with "hundred" ("two hundred and five", "twelve hundred").
    std::optional<Parsed> belowThousand(std::size_t i) const
    {
        auto head = belowHundred(i);
        if (!head) {
            return std::nullopt;
        }
        std::size_t next = i + head->length;
        if (word(next) != "hundred" || head->value == 0) {
            return head;
        }
        Parsed out {head->value * 100, head->length + 1};
        next += 1;
        std::size_t skip = word(next) == "and" ? 1 : 0;
        if (auto tail = belowHundred(next + skip); tail && tail->value > 0) {
            out.value += tail->value;
            out.length += skip + tail->length;
        }
        return out;
    }

    // Any cardinal up to the millions.
    std::optional<Parsed> cardinal(std::size_t i) const
    {
        auto head = belowThousand(i);
        if (!head) {
            return std::nullopt;
        }
        Parsed out = *head;
        std::size_t next = i + out.length;
        if (word(next) == "million" && out.value > 0) {
            out.value *= 1000000;
            out.length += 1;
            next += 1;
            auto rest = belowThousand(next);
            if (!rest || rest->value == 0) {
                return out;
            }
            if (word(next + rest->length) != "thousand") {
                out.value += rest->value;
                out.length += rest->length;
                return out;
            }
            out.value += rest->value * 1000;
            out.length += rest->length + 1;
            next += rest->length + 1;
            if (auto last = belowThousand(next); last && last->value > 0) {
                out.value += last->value;
                out.length += last->length;
            }
            return out;
        }
        if (word(next) == "thousand" && out.value > 0) {
            out.value *= 1000;
            out.length += 1;
            next += 1;
            const std::size_t skip = word(next) == "and" ? 1 : 0;
            if (auto rest = belowThousand(next + skip); rest && rest->value > 0) {
                out.value += rest->value;
                out.length += skip + rest->length;
            }
        }
        return out;
    }

    // A day of the month: "first", "twenty first", "fifteenth", or a cardinal 1..31.
    std::optional<Parsed> day(std::size_t i) const
    {
        if (const int o = indexIn(word(i), kUnitOrdinals); o > 0) {
            return Parsed {o, 1};
        }
        if (const int o = indexIn(word(i), kTeenOrdinals); o >= 0) {
            return Parsed {10 + o, 1};
        }
        if (const int o = indexIn(word(i), kTensOrdinals); o >= 0) {
            return Parsed {20 + 10 * o, 1};
        }
        if (const int t = indexIn(word(i), kTens); t >= 0) {
            if (const int o = indexIn(word(i + 1), kUnitOrdinals); o > 0) {
                return Parsed {20 + 10 * t + o, 2};
            }
        }
        if (auto n = belowHundred(i); n && n->value >= 1 && n->value <= 31) {
            return n;
        }
        return std::nullopt;
    }

    // A year said in two halves ("nineteen eighty four", "twenty twenty six", "twenty oh
    // five") or in full ("two thousand twenty six").
    std::optional<Parsed> year(std::size_t i) const
    {
        const bool teen = indexIn(word(i), kTeens) >= 0;
        const bool tens = indexIn(word(i), kTens) >= 0 && unit(i + 1) <= 0;
        if (teen || tens) {
            const auto century = belowHundred(i);
            const std::size_t next = i + century->length;
            if (word(next) == "oh" || word(next) == "o") {
                if (const int u = unit(next + 1); u > 0) {
                    return Parsed {century->value * 100 + u, century->length + 2};
                }
            }
            if (word(next) == "hundred") {
                return Parsed {century->value * 100, century->length + 1};
            }
            if (indexIn(word(next), kUnits) < 0) {
                if (auto rest = belowHundred(next); rest && rest->value >= 10) {
                    return Parsed {
                        century->value * 100 + rest->value, century->length + rest->length};
                }
            }
        }
        if (auto full = cardinal(i); full && full->value >= 1000 && full->value <= 2999) {
            return full;
        }
        return std::nullopt;
    }

    // Digits read one by one ("two oh four"); at least two of them.
    std::optional<std::pair<std::string, std::size_t>> digitSequence(std::size_t i) const
    {
        std::string digits;
        std::size_t n = 0;
        for (;; ++n) {
            const std::string_view w = word(i + n);
            if (w == "oh" || w == "o") {
                digits += '0';
            } else if (const int u = unit(i + n); u >= 0) {
                digits += static_cast<char>('0' + u);
            } else {
                break;
            }
        }
        if (n < 2) {
            return std::nullopt;
        }
        return std::make_pair(digits, n);
    }

private:
    const std::vector<Token> &m_tokens;
};

std::string digitsWithGrouping(long long value)
{
    std::string digits = std::to_string(value);
    if (value < 10000) {
        return digits;
    }
    std::string out;
    const int lead = static_cast<int>(digits.size() % 3);
    for (std::size_t k = 0; k < digits.size(); ++k) {
        if (k != 0 && (static_cast<int>(k) - lead) % 3 == 0) {
            out += ',';
        }
        out += digits[k];
    }
    return out;
}

Token numberToken(std::string text)
{
    return Token {std::move(text), Kind::word, true};
}

constexpr std::array<std::string_view, 9> kTimePrepositions
    = {"at", "by", "until", "till", "from", "before", "after", "around", "since"};
constexpr std::array<std::string_view, 17> kNumberedNouns
    = {"room", "number", "extension", "flight", "gate", "suite", "apartment", "page", "section",
        "chapter", "article", "clause", "step", "version", "item", "exhibit", "schedule"};
constexpr std::array<std::string_view, 5> kLegalNumberedNouns
    = {"section", "article", "clause", "exhibit", "schedule"};

// "am"/"pm" as one or two words; the written suffix and the tokens it took.
std::optional<std::pair<std::string, std::size_t>> meridiem(const NumberReader &r, std::size_t i)
{
    const std::string_view w = r.word(i);
    if (w == "am" || w == "a.m." || w == "a.m") {
        return std::make_pair(std::string("am"), std::size_t {1});
    }
    if (w == "pm" || w == "p.m." || w == "p.m") {
        return std::make_pair(std::string("pm"), std::size_t {1});
    }
    if ((w == "a" || w == "p" || w == "a." || w == "p.")
        && (r.word(i + 1) == "m" || r.word(i + 1) == "m.")) {
        return std::make_pair(std::string(w.substr(0, 1)) + "m", std::size_t {2});
    }
    return std::nullopt;
}

// Rewrites spoken numbers as digits: dates, times, money, percentages, numbered things,
// years and any number from ten up. Small counts stay words ("one of them", "two ideas").
std::vector<Token> writeNumbers(const std::vector<Token> &in, std::string_view domain)
{
    NumberReader r(in);
    std::vector<Token> out;
    const bool legal = domain == "legal";
    for (std::size_t i = 0; i < in.size();) {
        const std::string_view w = r.word(i);
        if (w.empty()) {
            out.push_back(in[i++]);
            continue;
        }

        // Dates: "january first twenty twenty six" -> "January 1, 2026".
        if (const int month = indexIn(w, kMonths); month >= 0) {
            // "may" and "march" are also a verb: only an ordinal day makes them a month.
            const bool ambiguous = w == "may" || w == "march";
            auto d = r.day(i + 1);
            if (d && ambiguous && r.belowHundred(i + 1)) {
                d.reset();
            }
            if (d) {
                std::string text = capitalized(std::string(w)) + " " + std::to_string(d->value);
                std::size_t used = 1 + d->length;
                if (auto y = r.year(i + used)) {
                    text += ", " + std::to_string(y->value);
                    used += y->length;
                }
                std::istringstream parts(text);
                for (std::string part; parts >> part;) {
                    out.push_back(numberToken(part));
                }
                i += used;
                continue;
            }
        }

        // Numbered things: "room two oh four" -> "room 204", "section one" -> "Section 1".
        if (oneOf(w, kNumberedNouns)) {
            std::optional<std::string> number;
            std::size_t used = 0;
            if (auto seq = r.digitSequence(i + 1)) {
                number = seq->first;
                used = seq->second;
            } else if (auto n = r.cardinal(i + 1)) {
                number = std::to_string(n->value);
                used = n->length;
            }
            if (number) {
                Token noun = in[i];
                if (legal && oneOf(w, kLegalNumberedNouns)) {
                    noun = numberToken(capitalized(noun.text));
                }
                out.push_back(noun);
                out.push_back(numberToken(*number));
                i += 1 + used;
                continue;
            }
        }

        // Times: "three pm" -> "3pm", "at four thirty" -> "at 4:30".
        if (auto hour = r.belowHundred(i); hour && hour->value >= 1 && hour->value <= 12) {
            const bool afterPreposition
                = !out.empty() && out.back().isWord() && oneOf(out.back().text, kTimePrepositions);
            std::size_t next = i + hour->length;
            std::optional<std::string> minutes;
            if ((r.word(next) == "oh" || r.word(next) == "o") && r.unit(next + 1) > 0) {
                minutes = "0" + std::to_string(r.unit(next + 1));
                next += 2;
            } else if (auto m = r.belowHundred(next);
                       m && m->value >= 10 && m->value <= 59 && hour->length == 1) {
                minutes = std::to_string(m->value);
                next += m->length;
            }
            const auto suffix = meridiem(r, next);
            if (suffix || (minutes && afterPreposition)) {
                std::string text = std::to_string(hour->value);
                if (minutes) {
                    text += ":" + *minutes;
                }
                if (suffix) {
                    text += suffix->first;
                    next += suffix->second;
                }
                out.push_back(numberToken(text));
                i = next;
                continue;
            }
        }

        // Years said in halves.
        if (auto y = r.year(i); y && y->length >= 2) {
            const bool halves = indexIn(r.word(i), kTeens) >= 0 || indexIn(r.word(i), kTens) >= 0;
            if (halves && r.word(i + 1) != "thousand" && r.word(i + 1) != "hundred") {
                out.push_back(numberToken(std::to_string(y->value)));
                i += y->length;
                continue;
            }
        }

        if (auto n = r.cardinal(i)) {
            std::size_t next = i + n->length;
            // Money: "forty two dollars and fifty cents" -> "$42.50".
            if (r.word(next) == "dollars" || r.word(next) == "dollar") {
                std::string text = "$" + digitsWithGrouping(n->value);
                next += 1;
                if (r.word(next) == "and") {
                    if (auto cents = r.belowHundred(next + 1); cents
                        && (r.word(next + 1 + cents->length) == "cents"
                            || r.word(next + 1 + cents->length) == "cent")) {
                        char buffer[8];
                        std::snprintf(buffer, sizeof buffer, ".%02lld", cents->value);
                        text += buffer;
                        next += 2 + cents->length;
                    }
                }
                out.push_back(numberToken(text));
                i = next;
                continue;
            }
            if (r.word(next) == "percent") {
                out.push_back(numberToken(digitsWithGrouping(n->value) + "%"));
                i = next + 1;
                continue;
            }
            if (n->value >= 10 || n->length > 1) {
                out.push_back(numberToken(digitsWithGrouping(n->value)));
                i = next;
                continue;
            }
        }
        out.push_back(in[i++]);
    }
    return out;
}

// ---- the other passes --------------------------------------------------------------

std::vector<Token> tokenize(std::string_view raw, std::int64_t &fillers)
{
    std::vector<Token> words;
    std::istringstream stream {std::string(raw)};
    for (std::string word; stream >> word;) {
        word = lower(word);
        if (Formatter::isFiller(word)) {
            ++fillers;
            continue;
        }
        words.push_back(Token {word});
    }
    return words;
}

// "period", "comma", "question mark", "dash", "new line"... said aloud become marks.
std::vector<Token> spokenPunctuation(const std::vector<Token> &in)
{
    static const std::array<std::pair<std::string_view, std::string_view>, 7> kTwoWords = {{
        {"question mark", "?"},
        {"exclamation mark", "!"},
        {"exclamation point", "!"},
        {"full stop", "."},
        {"new line", "\n"},
        {"new paragraph", "\n\n"},
        {"em dash", "\xE2\x80\x94"},
    }};
    static const std::array<std::pair<std::string_view, std::string_view>, 4> kOneWord = {{
        {"period", "."},
        {"comma", ","},
        {"dash", "\xE2\x80\x94"},
        {"newline", "\n"},
    }};
    std::vector<Token> out;
    for (std::size_t i = 0; i < in.size(); ++i) {
        bool done = false;
        if (i + 1 < in.size()) {
            const std::string pair = in[i].text + " " + in[i + 1].text;
            for (const auto &[spoken, mark] : kTwoWords) {
                if (pair == spoken) {
                    out.push_back(Token {std::string(mark), Kind::mark});
                    ++i;
                    done = true;
                    break;
                }
            }
        }
        if (done) {
            continue;
        }
        for (const auto &[spoken, mark] : kOneWord) {
            if (in[i].text == spoken) {
                out.push_back(Token {std::string(mark), Kind::mark});
                done = true;
                break;
            }
        }
        if (!done) {
            out.push_back(in[i]);
        }
    }
    return out;
}

std::string compact(std::string_view text)
{
    std::string out;
    for (const char c : lower(text)) {
        if (c != ' ' && c != '-' && c != '.') {
            out += c;
        }
    }
    return out;
}

// Personal-dictionary terms in their own spelling: "maren" -> "Maren", and a term the
// recogniser split into pieces ("type script") -> "TypeScript".
std::vector<Token> dictionaryTerms(
    const std::vector<Token> &in, const std::vector<std::string> &terms)
{
    struct Term
    {
        std::string written;
        std::vector<std::string> words;
        std::string joined;
    };
    std::vector<Term> prepared;
    for (const std::string &term : terms) {
        Term t {term, {}, compact(term)};
        std::istringstream parts(lower(term));
        for (std::string part; parts >> part;) {
            t.words.push_back(part);
        }
        if (!t.words.empty() && !t.joined.empty()) {
            prepared.push_back(std::move(t));
        }
    }
    std::stable_sort(prepared.begin(), prepared.end(),
        [](const Term &a, const Term &b) { return a.words.size() > b.words.size(); });

    std::vector<Token> out;
    for (std::size_t i = 0; i < in.size();) {
        std::size_t used = 0;
        const Term *match = nullptr;
        for (const Term &t : prepared) {
            if (i + t.words.size() <= in.size()
                && std::equal(t.words.begin(), t.words.end(), in.begin() + static_cast<long>(i),
                    [](const std::string &w, const Token &tok) {
                        return tok.isWord() && tok.text == w;
                    })) {
                match = &t;
                used = t.words.size();
                break;
            }
            std::string joined;
            for (std::size_t n = 0; n < 4 && i + n < in.size() && in[i + n].isWord(); ++n) {
                joined += in[i + n].text;
                if (joined == t.joined) {
                    match = &t;
                    used = n + 1;
                    break;
                }
                if (joined.size() >= t.joined.size()) {
                    break;
                }
            }
            if (match) {
                break;
            }
        }
        if (match) {
            out.push_back(Token {match->written, Kind::word, true});
            i += used;
        } else {
            out.push_back(in[i++]);
        }
    }
    return out;
}

// Email: "hi maren just ..." -> "Hi Maren, just ...".
void emailGreeting(std::vector<Token> &tokens)
{
    static constexpr std::array<std::string_view, 4> kGreetings = {"hi", "hello", "hey", "dear"};
    static constexpr std::array<std::string_view, 6> kNotNames
        = {"there", "all", "everyone", "team", "guys", "folks"};
    if (tokens.size() < 2 || !tokens[0].isWord() || !oneOf(tokens[0].text, kGreetings)
        || !tokens[1].isWord()) {
        return;
    }
    if (!tokens[1].verbatim && !oneOf(tokens[1].text, kNotNames)) {
        tokens[1].text = capitalized(tokens[1].text);
        tokens[1].verbatim = true;
    }
    if (tokens.size() > 2 && tokens[2].isWord()) {
        tokens.insert(tokens.begin() + 2, Token {",", Kind::mark});
    }
}

// Legal drafting capitalises its defined terms.
std::vector<Token> legalTerms(const std::vector<Token> &in)
{
    static const std::array<std::pair<std::string_view, std::string_view>, 6> kTwoWords = {{
        {"effective date", "Effective Date"},
        {"confidential information", "Confidential Information"},
        {"disclosing party", "Disclosing Party"},
        {"receiving party", "Receiving Party"},
        {"governing law", "Governing Law"},
        {"intellectual property", "Intellectual Property"},
    }};
    std::vector<Token> out;
    for (std::size_t i = 0; i < in.size(); ++i) {
        if (i + 1 < in.size() && in[i].isWord() && in[i + 1].isWord() && !in[i].verbatim) {
            const std::string pair = in[i].text + " " + in[i + 1].text;
            const auto it = std::find_if(kTwoWords.begin(), kTwoWords.end(),
                [&](const auto &entry) { return entry.first == pair; });
            if (it != kTwoWords.end()) {
                out.push_back(Token {std::string(it->second), Kind::word, true});
                ++i;
                continue;
            }
        }
        Token token = in[i];
        if ((token.is("agreement") || token.is("parties")) && !out.empty()
            && (out.back().is("this") || out.back().is("the"))) {
            token.text = capitalized(token.text);
            token.verbatim = true;
        }
        out.push_back(token);
    }
    return out;
}

// Words that are always written with a capital outside casual writing.
void properWords(std::vector<Token> &tokens)
{
    for (Token &t : tokens) {
        if (!t.isWord() || t.verbatim) {
            continue;
        }
        if (t.text == "i" || t.text.starts_with("i'")) {
            t.text[0] = 'I';
        } else if ((indexIn(t.text, kMonths) >= 0 && t.text != "may" && t.text != "march")
            || indexIn(t.text, kDays) >= 0) {
            t.text = capitalized(t.text);
        }
    }
}

bool isTerminator(const Token &t)
{
    return t.kind == Kind::mark && (t.text == "." || t.text == "?" || t.text == "!");
}

bool isBreak(const Token &t)
{
    return t.kind == Kind::mark && !t.text.empty() && t.text[0] == '\n';
}

// A clause that opens with an auxiliary and a pronoun ("can we", "do you") or with a
// question word asks something.
bool opensQuestion(const std::vector<Token> &tokens, std::size_t i)
{
    static constexpr std::array<std::string_view, 29> kAuxiliaries
        = {"is", "are", "am", "was", "were", "do", "does", "did", "can", "could", "will", "would",
            "shall", "should", "may", "might", "must", "have", "has", "had", "isn't", "aren't",
            "don't", "doesn't", "didn't", "can't", "won't", "wouldn't", "shouldn't"};
    static constexpr std::array<std::string_view, 23> kSubjects
        = {"i", "you", "we", "they", "he", "she", "it", "this", "that", "these", "those", "there",
            "the", "a", "an", "your", "my", "our", "their", "his", "her", "anyone", "someone"};
    static constexpr std::array<std::string_view, 6> kQuestionWords
        = {"what", "where", "why", "who", "how", "which"};
    if (i >= tokens.size() || !tokens[i].isWord()) {
        return false;
    }
    const std::string first = lower(tokens[i].text);
    if (oneOf(first, kQuestionWords)) {
        return true;
    }
    const bool subjectFollows = i + 1 < tokens.size() && tokens[i + 1].isWord()
        && (oneOf(lower(tokens[i + 1].text), kSubjects) || tokens[i + 1].verbatim);
    if (first == "when") {
        return i + 1 < tokens.size() && oneOf(lower(tokens[i + 1].text), kAuxiliaries);
    }
    // "do it", "do this": an instruction, not a question.
    if (first == "do" && i + 1 < tokens.size()
        && oneOf(
            lower(tokens[i + 1].text), std::array<std::string_view, 3> {"it", "this", "that"})) {
        return false;
    }
    return oneOf(first, kAuxiliaries) && subjectFollows;
}

// Ends every sentence, with a question mark where it asks, and capitalises its first word.
void sentences(std::vector<Token> &tokens)
{
    std::vector<Token> out;
    std::size_t start = 0;
    auto close = [&](std::size_t end, bool explicitEnd) {
        // [start, end) is one sentence without its terminator.
        bool asks = opensQuestion(tokens, start);
        for (std::size_t k = start; k < end; ++k) {
            const bool clauseBreak = tokens[k].kind == Kind::mark
                && (tokens[k].text == "," || tokens[k].text == kEmDash);
            if (clauseBreak && opensQuestion(tokens, k + 1)) {
                asks = true;
            }
        }
        bool first = true;
        for (std::size_t k = start; k < end; ++k) {
            Token t = tokens[k];
            if (first && t.isWord()) {
                if (!t.verbatim) {
                    t.text = capitalized(t.text);
                }
                first = false;
            }
            out.push_back(t);
        }
        const bool hasWords = std::any_of(tokens.begin() + static_cast<long>(start),
            tokens.begin() + static_cast<long>(end), [](const Token &t) { return t.isWord(); });
        if (!explicitEnd && hasWords) {
            while (!out.empty() && out.back().kind == Kind::mark && !isBreak(out.back())) {
                out.pop_back(); // a trailing comma or dash gives way to the full stop
            }
            out.push_back(Token {asks ? "?" : ".", Kind::mark});
        }
    };
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        if (isTerminator(tokens[i])) {
            close(i, true);
            out.push_back(tokens[i]);
            start = i + 1;
        } else if (isBreak(tokens[i])) {
            close(i, false);
            out.push_back(tokens[i]);
            start = i + 1;
        }
    }
    close(tokens.size(), false);
    tokens = std::move(out);
}

std::string join(const std::vector<Token> &tokens)
{
    std::string out;
    for (const Token &t : tokens) {
        // An em dash stands apart from its neighbours, as a word does.
        if (t.kind == Kind::word || t.text == kEmDash) {
            if (!out.empty() && out.back() != '\n') {
                out += ' ';
            }
            out += t.text;
        } else if (isBreak(t)) {
            while (!out.empty() && out.back() == ' ') {
                out.pop_back();
            }
            out += t.text;
        } else {
            out += t.text;
        }
    }
    return out;
}

bool isWordByte(std::string_view text, std::size_t i, std::size_t &width)
{
    const auto c = static_cast<unsigned char>(text[i]);
    width = 1;
    if (c < 0x80) {
        return std::isalnum(c) || c == '\'';
    }
    // Dashes and typographic quotes separate words; other non-ASCII letters belong to one.
    if (c == 0xE2 && i + 2 < text.size() && static_cast<unsigned char>(text[i + 1]) == 0x80) {
        width = 3;
        return false;
    }
    if (c == 0xC2 && i + 1 < text.size()) {
        width = 2;
        return false; // no-break space, currency and other Latin-1 signs
    }
    return true;
}

} // namespace

bool Formatter::isFiller(std::string_view word)
{
    static constexpr std::array<std::string_view, 10> kFillers
        = {"um", "uh", "er", "ah", "hmm", "umm", "uhm", "erm", "uhh", "hm"};
    return oneOf(word, kFillers);
}

std::vector<std::string> Formatter::normalizedWords(std::string_view text)
{
    std::vector<std::string> words;
    std::string current;
    for (std::size_t i = 0; i < text.size();) {
        std::size_t width = 1;
        if (isWordByte(text, i, width)) {
            current.append(text.substr(i, width));
        } else if (!current.empty()) {
            words.push_back(lower(current));
            current.clear();
        }
        i += width;
    }
    if (!current.empty()) {
        words.push_back(lower(current));
    }
    return words;
}

double Formatter::editRatio(std::string_view before, std::string_view after)
{
    const auto a = normalizedWords(before);
    const auto b = normalizedWords(after);
    if (a.empty()) {
        return b.empty() ? 0.0 : 1.0;
    }
    std::vector<std::size_t> previous(b.size() + 1);
    std::vector<std::size_t> current(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        previous[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        current[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t substitution = previous[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            current[j] = std::min({substitution, current[j - 1] + 1, previous[j] + 1});
        }
        std::swap(previous, current);
    }
    return static_cast<double>(previous[b.size()]) / static_cast<double>(a.size());
}

std::string Formatter::rewrite(std::string_view raw, std::string_view domain,
    const std::vector<std::string> &personalDictionary, std::int64_t *fillerCount) const
{
    std::int64_t fillers = 0;
    std::vector<Token> tokens = tokenize(raw, fillers);
    if (fillerCount) {
        *fillerCount = fillers;
    }
    tokens = spokenPunctuation(tokens);
    tokens = dictionaryTerms(tokens, personalDictionary);
    tokens = writeNumbers(tokens, domain);
    if (domain == "casual") {
        // Casual writing keeps the speaker's lower case and leaves sentences open.
        return join(tokens);
    }
    if (domain == "email") {
        emailGreeting(tokens);
    }
    if (domain == "legal") {
        tokens = legalTerms(tokens);
    }
    properWords(tokens);
    sentences(tokens);
    return join(tokens);
}

FormatResult Formatter::format(std::string_view raw, std::string_view domain,
    const std::vector<std::string> &personalDictionary) const
{
    FormatResult result;
    std::int64_t fillers = 0;
    const std::string formatted = rewrite(raw, domain, personalDictionary, &fillers);
    result.fillerCount = fillers;

    std::string spoken;
    std::istringstream words {std::string(raw)};
    for (std::string word; words >> word;) {
        ++result.spokenWordCount;
        if (!isFiller(lower(word))) {
            spoken += (spoken.empty() ? "" : " ") + word;
        }
    }
    // Dropping hesitations is not an edit the guardrail should weigh.
    const double ratio = editRatio(spoken, formatted);
    result.guardrail.editRatio = ratio;
    result.guardrail.policy = "max_edit_ratio_0.5";
    if (ratio > kMaxEditRatio) {
        result.text = std::string(raw);
        result.guardrail.applied = false;
        char reason[96];
        std::snprintf(reason, sizeof reason,
            "formatting would change %.0f%% of the words; raw text kept", ratio * 100.0);
        result.guardrail.reason = reason;
    } else {
        result.text = formatted;
        result.guardrail.applied = true;
    }
    return result;
}

} // namespace sayvo
