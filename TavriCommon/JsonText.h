#pragma once
// The one reader of JSON text: a size-limited read of a file, and a parse that tells
// where each value stands. The settings loader, teli-grab's settings check and the
// simulated rig's reader take the text, the parse and its positions from here and keep
// only what is their own: what they build, their rules, and the words of their refusals.

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <unordered_map>

namespace Tavri::Json {

// Line and column of a byte, both from 1.
struct Position {
    std::size_t line = 1;
    std::size_t column = 1;
};

// Positions of byte offsets in one text (offsets past the end count as the end). Asked in
// increasing order, as a parse reaches them, the text is counted once in all; an earlier
// offset counts again from the start.
class Lines {
public:
    explicit Lines(const std::string& text) : text_(text) {}
    Position at(std::size_t offset);

private:
    const std::string& text_;
    std::size_t counted_ = 0, line_ = 1, lineStart_ = 0;
};

// A file read whole, never more than one byte past `limit`, whatever it is (a pipe or a
// device that never ends stops there).
struct FileText {
    enum class Outcome { Read, CannotOpen, ReadFailed, TooLarge };
    Outcome outcome = Outcome::Read;
    std::string text;         // TooLarge: the first limit + 1 bytes
    std::uintmax_t size = 0;  // TooLarge: the file's size, 0 when the file cannot tell it
    int error = 0;            // CannotOpen, ReadFailed: errno
};
FileText readFile(const std::string& fileName, std::size_t limit);

// Why the parse refused a text, and where.
struct Refusal {
    enum class Kind { Syntax, NumberOverflow, TooDeep };
    Kind kind;
    std::size_t offset;      // the last byte the parser read (TooDeep: the opening bracket)
    std::size_t tokenStart;  // the first byte of the refused token
    std::string token;       // as written (NumberOverflow: the number)
    std::string reason;      // the parser's own words, without its tag and position
};

// What a parse reports, in the text's order. Every refusal of the consumer's own is
// thrown from an event; refuse() must throw too.
class Events {
public:
    virtual ~Events() = default;
    virtual void null() = 0;
    virtual void boolean(bool value) = 0;
    virtual void number(double value) = 0;
    virtual void integer(std::int64_t value) { number(static_cast<double>(value)); }
    virtual void unsignedInteger(std::uint64_t value) { number(static_cast<double>(value)); }
    virtual void string(std::string& value) = 0;
    virtual void startObject() = 0;
    virtual void key(std::string& name) = 0;
    virtual void endObject() = 0;
    virtual void startArray() = 0;
    virtual void endArray() = 0;
    [[noreturn]] virtual void refuse(const Refusal& refusal) = 0;
};

// One parse of one text, linear in its size. maxDepth bounds the objects and arrays open
// at once (0: no bound; the parser itself never recurses).
class Parse {
public:
    explicit Parse(const std::string& text, std::size_t maxDepth = 0) : text_(text), maxDepth_(maxDepth), lines_(text) {}
    void run(Events& events);

    // During an event: the last byte the parser has read, and the first byte of the
    // event's token (a key's or a string's opening quote, a number's first digit).
    std::size_t taken() const;
    std::size_t tokenStart() const;
    Position position(std::size_t offset) { return lines_.at(offset); }

private:
    friend class SaxAdapter;
    enum class Token { Bracket, Quoted, Word };
    const std::string& text_;
    std::size_t maxDepth_;
    Lines lines_;
    const char* reached_ = nullptr;
    Token token_ = Token::Bracket;
};

// The parser's refusal as an exception, for consumers with nothing to add to it.
struct ParseFailure : std::runtime_error {
    explicit ParseFailure(Refusal r) : std::runtime_error(r.reason), refusal(std::move(r)) {}
    Refusal refusal;
};

// A whole text as one value, with the offset at which each value starts, by its path:
// "" for the root, keys as written and array indices joined by '/' ("/cameras/0/width").
// Throws ParseFailure.
struct Document {
    nlohmann::json value;
    std::unordered_map<std::string, std::size_t> starts;
};
Document parseDocument(const std::string& text, std::size_t maxDepth);

}  // namespace Tavri::Json
