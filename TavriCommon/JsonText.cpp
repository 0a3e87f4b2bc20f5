#include "TavriCommon/JsonText.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace Tavri::Json {

Position Lines::at(std::size_t offset) {
    offset = std::min(offset, text_.size());
    if (offset < counted_) counted_ = 0, line_ = 1, lineStart_ = 0;
    for (const char* at = text_.data() + counted_, *end = text_.data() + offset;;) {
        const void* newline = std::memchr(at, '\n', static_cast<std::size_t>(end - at));
        if (!newline) break;
        at = static_cast<const char*>(newline) + 1;
        ++line_;
        lineStart_ = static_cast<std::size_t>(at - text_.data());
    }
    counted_ = offset;
    return {line_, offset - lineStart_ + 1};
}

FileText readFile(const std::string& fileName, std::size_t limit) {
    FileText file;
    std::error_code error;
    const bool regular = std::filesystem::is_regular_file(fileName, error);
    const auto size = regular ? std::filesystem::file_size(fileName, error) : std::uintmax_t{0};
    const bool sized = regular && !error;
    errno = 0;
    std::ifstream in(fileName, std::ios::binary);
    if (!in) {
        file.outcome = FileText::Outcome::CannotOpen;
        file.error = errno;
        return file;
    }
    // Room for the whole file (or the limit, when the size is unknown) is taken at once:
    // pages are only touched as bytes arrive, and the text is never copied to grow.
    file.text.reserve(sized ? static_cast<std::size_t>(std::min<std::uintmax_t>(size, limit)) + 1 : limit + 1);
    char chunk[1 << 16];
    while (in && file.text.size() <= limit) {
        in.read(chunk, static_cast<std::streamsize>(std::min(sizeof chunk, limit + 1 - file.text.size())));
        file.text.append(chunk, static_cast<std::size_t>(in.gcount()));
    }
    const std::size_t filled = file.text.size();
    if (in.bad()) {
        file.outcome = FileText::Outcome::ReadFailed;
        file.error = errno;
    } else if (filled > limit) {
        file.outcome = FileText::Outcome::TooLarge;
        file.size = sized ? size : 0;
    }
    return file;
}

namespace {

// Hands the text to the parser one byte at a time and remembers how far it got. Being
// local to this file lets the compiler inline the parser's reading of each byte.
class CountingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountingIterator(const char* at, const char** reached) : at_(at), reached_(reached) {}
    reference operator*() const { return *at_; }
    CountingIterator& operator++() {
        *reached_ = ++at_;
        return *this;
    }
    bool operator==(const CountingIterator& other) const { return at_ == other.at_; }
    bool operator!=(const CountingIterator& other) const { return at_ != other.at_; }

private:
    const char* at_;
    const char** reached_;
};

}  // namespace

// nlohmann's SAX events, handed on with the kind of token each one stands for.
class SaxAdapter {
public:
    SaxAdapter(Parse& parse, Events& events) : parse_(parse), events_(events) {}

    bool null() { return word(), events_.null(), true; }
    bool boolean(bool value) { return word(), events_.boolean(value), true; }
    bool number_integer(std::int64_t value) { return word(), events_.integer(value), true; }
    bool number_unsigned(std::uint64_t value) { return word(), events_.unsignedInteger(value), true; }
    bool number_float(double value, const std::string&) { return word(), events_.number(value), true; }
    bool string(std::string& value) { return quoted(), events_.string(value), true; }
    bool binary(nlohmann::json::binary_t&) { return true; }  // JSON text holds none
    bool start_object(std::size_t) { return open(), events_.startObject(), true; }
    bool key(std::string& name) { return quoted(), events_.key(name), true; }
    bool end_object() { return close(), events_.endObject(), true; }
    bool start_array(std::size_t) { return open(), events_.startArray(), true; }
    bool end_array() { return close(), events_.endArray(), true; }

    bool parse_error(std::size_t position, const std::string& token, const nlohmann::detail::exception& error) {
        // nlohmann's text reads "[json.exception.parse_error.101] parse error at line 2,
        // column 14: syntax error ..."; the position is told our way, the rest kept.
        std::string reason = error.what();
        const auto tag = reason.find("] ");
        if (reason.rfind("[json.exception.", 0) == 0 && tag != std::string::npos) reason.erase(0, tag + 2);
        if (reason.rfind("parse error", 0) == 0) reason.erase(0, std::min(reason.size(), reason.find(": ") + 2));
        const std::size_t offset = std::min(position, parse_.text_.size());
        const std::size_t last = offset == 0 ? 0 : offset - 1;
        // 406: the number is read whole before it is found to be beyond a double.
        const bool overflow = error.id == 406;
        events_.refuse({overflow ? Refusal::Kind::NumberOverflow : Refusal::Kind::Syntax, last,
                        overflow && token.size() <= last + 1 ? last + 1 - token.size() : last, token, reason});
        return false;  // not reached: refuse() throws
    }

private:
    void word() { parse_.token_ = Parse::Token::Word; }
    void quoted() { parse_.token_ = Parse::Token::Quoted; }
    void open() {
        parse_.token_ = Parse::Token::Bracket;
        if (parse_.maxDepth_ != 0 && depth_ >= parse_.maxDepth_) {
            const std::size_t at = parse_.taken();
            events_.refuse({Refusal::Kind::TooDeep, at, at, std::string(1, parse_.text_[at]),
                            "nested deeper than " + std::to_string(parse_.maxDepth_) + " levels"});
        }
        ++depth_;
    }
    void close() {
        parse_.token_ = Parse::Token::Bracket;
        --depth_;
    }

    Parse& parse_;
    Events& events_;
    std::size_t depth_ = 0;
};

void Parse::run(Events& events) {
    const char* begin = text_.data();
    reached_ = begin;
    SaxAdapter adapter(*this, events);
    nlohmann::json::sax_parse(CountingIterator(begin, &reached_), CountingIterator(begin + text_.size(), &reached_),
                              &adapter);
}

std::size_t Parse::taken() const {
    const auto reached = static_cast<std::size_t>(reached_ - text_.data());
    return reached == 0 ? 0 : reached - 1;
}

std::size_t Parse::tokenStart() const {
    std::size_t at = taken();
    if (token_ == Token::Bracket || text_.empty()) return at;
    if (token_ == Token::Quoted) {
        // Back from the closing quote to the first quote no backslash escapes.
        for (std::size_t i = at; i-- > 0;) {
            if (text_[i] != '"') continue;
            std::size_t slashes = 0;
            while (i > slashes && text_[i - 1 - slashes] == '\\') ++slashes;
            if (slashes % 2 == 0) return i;
        }
        return at;
    }
    // A number or a literal; the parser may have read one byte past its end.
    const auto inWord = [&](std::size_t i) { return std::isalnum(static_cast<unsigned char>(text_[i])) || std::strchr("+-.", text_[i]); };
    if (at > 0 && !inWord(at)) --at;
    while (at > 0 && inWord(at - 1)) --at;
    return at;
}

namespace {

// Builds the value as nlohmann's own parser would (a repeated key keeps its last value)
// and notes where each value starts.
class DocumentBuilder : public Events {
public:
    DocumentBuilder(Parse& parse, Document& document) : parse_(parse), document_(document) {}

    void null() override { add(nullptr); }
    void boolean(bool value) override { add(value); }
    void number(double value) override { add(value); }
    void integer(std::int64_t value) override { add(value); }
    void unsignedInteger(std::uint64_t value) override { add(value); }
    void string(std::string& value) override { add(std::move(value)); }
    void startObject() override { open(nlohmann::json::object()); }
    void key(std::string& name) override { key_ = std::move(name); }
    void endObject() override { open_.pop_back(); }
    void startArray() override { open(nlohmann::json::array()); }
    void endArray() override { open_.pop_back(); }
    [[noreturn]] void refuse(const Refusal& refusal) override { throw ParseFailure(refusal); }

private:
    struct Open {
        nlohmann::json* value;
        std::string path;
    };

    nlohmann::json& add(nlohmann::json value) {
        std::string path;
        nlohmann::json* slot = &document_.value;
        if (!open_.empty()) {
            nlohmann::json& parent = *open_.back().value;
            if (parent.is_array()) {
                path = open_.back().path + "/" + std::to_string(parent.size());
                parent.push_back(nullptr);
                slot = &parent.back();
            } else {
                path = open_.back().path + "/" + key_;
                slot = &parent[key_];
            }
        }
        *slot = std::move(value);
        document_.starts[path] = parse_.tokenStart();
        lastPath_ = std::move(path);
        return *slot;
    }
    void open(nlohmann::json empty) {
        nlohmann::json& value = add(std::move(empty));
        open_.push_back({&value, lastPath_});
    }

    Parse& parse_;
    Document& document_;
    std::vector<Open> open_;
    std::string key_, lastPath_;
};

}  // namespace

Document parseDocument(const std::string& text, std::size_t maxDepth) {
    Document document;
    Parse parse(text, maxDepth);
    DocumentBuilder builder(parse, document);
    parse.run(builder);
    return document;
}

}  // namespace Tavri::Json
