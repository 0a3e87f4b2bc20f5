// JSON loading and saving of settings trees. The loader takes nlohmann's SAX events
// (its parser keeps its own stack, no recursion) and builds the tree with an explicit
// stack of open groups; the saver walks the tree with an explicit stack too. Neither
// recurses once per level, so no file can exhaust the thread's stack.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <unordered_set>

#include "TavriCommon/Exceptions.h"
#include "TavriCommon/Settings.h"
#include "TavriCommon/SettingsNode.h"

namespace Tavri {
namespace {

using Kind = SettingsNode::Kind;
using json = nlohmann::json;

// Hands the text to the parser one character at a time and remembers how far it got,
// so that refusals raised from SAX events can name a line and a column.
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

std::string sizeRefusal(const std::string& origin, const std::string& size) {
    return "Failed to load settings file '" + origin + "': it holds " + size + " bytes, more than the " +
           std::to_string(TSettings::maxJsonBytes) + " a settings file may hold";
}

class TreeBuilder {
public:
    TreeBuilder(const std::string& text, const std::string& origin) : text_(text), origin_(origin) {
        reached_ = text_.data();
    }

    std::shared_ptr<SettingsNode> build() {
        const char* begin = text_.data();
        const char* end = begin + text_.size();
        json::sax_parse(CountingIterator(begin, &reached_), CountingIterator(end, &reached_), this);
        return root_;
    }

    // SAX events; a refusal throws, so every event that returns at all returns true.
    bool null() { return refuseValue("null"); }
    bool boolean(bool) { return refuseValue("boolean"); }
    bool binary(json::binary_t&) { return refuseValue("binary"); }
    bool number_integer(json::number_integer_t value) { return number(static_cast<double>(value)); }
    bool number_unsigned(json::number_unsigned_t value) { return number(static_cast<double>(value)); }
    bool number_float(json::number_float_t value, const std::string&) { return number(value); }

    bool string(std::string& value) {
        if (!stack_.empty() && stack_.back().kind == Frame::Range) {
            stack_.back().node->range.push_back(std::move(value));
            return true;
        }
        if (!stack_.empty() && stack_.back().kind == Frame::Word) {
            if (stack_.back().key != "$value") refuseInWord();
            stack_.back().node->word = std::move(value);
            return true;
        }
        auto node = newNode();
        node->kind = Kind::Word;
        node->word = std::move(value);
        return true;
    }

    bool start_object(std::size_t) {
        if (!stack_.empty() && stack_.back().kind != Frame::Group) refuseInWord();
        if (stack_.size() >= TSettings::maxJsonDepth)
            refuse("groups nest deeper than " + std::to_string(TSettings::maxJsonDepth) + " levels");
        stack_.push_back({Frame::Group, newNode(), {}, {}});
        return true;
    }

    bool key(std::string& name) {
        Frame& frame = stack_.back();
        const bool reserved = isReservedSettingsKey(name);
        if (frame.kind == Frame::Group && reserved) {
            if (!frame.node->children.empty())
                refuse("reserved key '" + name + "' stands beside other keys in " + describe(*frame.node));
            frame.kind = Frame::Word;  // {"$value": word, "$range": [words]}
            frame.node->kind = Kind::Word;
        } else if (frame.kind == Frame::Word && !reserved) {
            refuse("key '" + name + "' stands in " + describe(*frame.node) +
                   ", a word with a range, which holds only '$value' and '$range'");
        } else if (frame.kind == Frame::Group && (name.empty() || name.find('/') != std::string::npos)) {
            refuse("invalid settings key '" + name + "' in " + describe(*frame.node));
        }
        if (!frame.keys.insert(name).second) refuse("duplicate key '" + name + "' in " + describe(*frame.node));
        frame.key = std::move(name);
        return true;
    }

    bool end_object() {
        const Frame& frame = stack_.back();
        if (frame.kind == Frame::Word && !frame.keys.count("$value"))
            refuse(describe(*frame.node) + " has '$range' but no '$value'");
        stack_.pop_back();
        return true;
    }

    bool start_array(std::size_t) {
        if (!stack_.empty() && stack_.back().kind == Frame::Word && stack_.back().key == "$range") {
            stack_.push_back({Frame::Range, stack_.back().node, {}, {}});
            return true;
        }
        return refuseValue("array");
    }

    bool end_array() {
        stack_.pop_back();
        return true;
    }

    bool parse_error(std::size_t position, const std::string& token, const nlohmann::detail::exception& error) {
        // The parser's own count: it has given back the character it read past a number.
        reached_ = text_.data() + std::min(position, text_.size());
        if (error.id == 406) refuse("number " + token + " is beyond the range of a double");
        // nlohmann's text reads "[json.exception.parse_error.101] parse error at line 2,
        // column 14: syntax error ..."; the position is given our way, the rest kept.
        const std::string text = error.what();
        const auto column = text.find(", column ");
        const auto reason = column == std::string::npos ? std::string::npos : text.find(": ", column);
        refuse(reason == std::string::npos ? text : text.substr(reason + 2));
    }

private:
    struct Frame {
        enum Kind { Group, Word, Range } kind;
        std::shared_ptr<SettingsNode> node;
        std::unordered_set<std::string> keys;  // names seen so far, to refuse duplicates
        std::string key;                       // the key whose value comes next
    };

    // The node the next value goes to: the root, or a child of the open group.
    std::shared_ptr<SettingsNode> newNode() {
        if (stack_.empty()) return root_ = std::make_shared<SettingsNode>();
        return SettingsNode::addChild(stack_.back().node, std::move(stack_.back().key));
    }

    bool number(double value) {
        if (!stack_.empty() && stack_.back().kind != Frame::Group) refuseInWord();
        auto node = newNode();
        node->kind = Kind::Number;
        node->number = value;
        return true;
    }

    [[noreturn]] bool refuseValue(const std::string& type) {
        if (!stack_.empty() && stack_.back().kind != Frame::Group) refuseInWord();
        if (stack_.empty()) refuse("a settings file must hold a group, a number or a word, not " + type);
        const Frame& frame = stack_.back();
        const std::string parentPath = frame.node->path();
        refuse("setting '" + (parentPath.empty() ? frame.key : parentPath + "/" + frame.key) +
               "' must be a number, a word or a group, not " + type);
    }

    [[noreturn]] void refuseInWord() {
        const Frame& frame = stack_.back();
        if (frame.kind == Frame::Word && frame.key == "$value")
            refuse("'$value' of " + describe(*frame.node) + " must be a word");
        refuse("'$range' of " + describe(*frame.node) + " must be a list of words");
    }

    static std::string describe(const SettingsNode& node) {
        const std::string path = node.path();
        return path.empty() ? std::string("the root") : "setting '" + path + "'";
    }

    [[noreturn]] void refuse(const std::string& reason) const {
        // The position of the last character the parser took.
        const std::size_t taken = static_cast<std::size_t>(reached_ - text_.data());
        const std::size_t last = taken == 0 ? 0 : taken - 1;
        const auto lineStart = last == 0 ? std::string::npos : text_.rfind('\n', last - 1);
        const std::size_t line = 1 + static_cast<std::size_t>(std::count(text_.begin(), text_.begin() + last, '\n'));
        const std::size_t column = lineStart == std::string::npos ? last + 1 : last - lineStart;
        throw RuntimeException("Failed to load settings file '" + origin_ + "' at line " + std::to_string(line) +
                               ", column " + std::to_string(column) + ": " + reason);
    }

    const std::string& text_;
    const std::string& origin_;
    const char* reached_;
    std::shared_ptr<SettingsNode> root_;
    std::vector<Frame> stack_;
};

// Writes the tree as nlohmann's dump() would (same layout, escapes and number text),
// walking it with an explicit stack.
class JsonWriter {
public:
    JsonWriter(std::string& out, int indent) : out_(out), indent_(indent) {}

    void write(const SettingsNode& root) {
        if (root.kind != Kind::Group || root.children.empty()) return leaf(root, 0);
        struct Open {
            const SettingsNode* group;
            std::size_t next;
        };
        std::vector<Open> stack{{&root, 0}};
        out_ += '{';
        while (!stack.empty()) {
            Open& open = stack.back();
            const std::size_t depth = stack.size();
            if (open.next == open.group->children.size()) {
                newline(depth - 1);
                out_ += '}';
                stack.pop_back();
                continue;
            }
            const SettingsNode& child = *open.group->children[open.next++];
            if (open.next > 1) out_ += ',';
            newline(depth);
            key(child.name);
            if (child.kind == Kind::Group && !child.children.empty()) {
                if (depth >= TSettings::maxJsonDepth)
                    throw RuntimeException("Setting '" + child.path() + "' nests groups deeper than " +
                                           std::to_string(TSettings::maxJsonDepth) +
                                           " levels; such a file could not be loaded again");
                out_ += '{';
                stack.push_back({&child, 0});
            } else {
                leaf(child, depth);
            }
        }
    }

private:
    void leaf(const SettingsNode& node, std::size_t depth) {
        switch (node.kind) {
            case Kind::Group: out_ += "{}"; return;
            case Kind::Number:
                if (!std::isfinite(node.number))
                    throw RuntimeException("Setting '" + node.path() + "' holds " + std::to_string(node.number) +
                                           ", which a settings file cannot hold");
                out_ += json(node.number).dump();
                return;
            case Kind::Word:
                if (node.range.empty()) {
                    out_ += json(node.word).dump();
                    return;
                }
                out_ += '{';
                newline(depth + 1);
                key("$value");
                out_ += json(node.word).dump();
                out_ += ',';
                newline(depth + 1);
                key("$range");
                out_ += '[';
                for (std::size_t i = 0; i < node.range.size(); ++i) {
                    if (i > 0) out_ += ',';
                    newline(depth + 2);
                    out_ += json(node.range[i]).dump();
                }
                newline(depth + 1);
                out_ += ']';
                newline(depth);
                out_ += '}';
                return;
        }
    }

    void key(const std::string& name) {
        out_ += json(name).dump();
        out_ += indent_ >= 0 ? ": " : ":";
    }

    void newline(std::size_t depth) {
        if (indent_ < 0) return;
        out_ += '\n';
        out_.append(depth * static_cast<std::size_t>(indent_), ' ');
    }

    std::string& out_;
    int indent_;
};

// Reads at most maxJsonBytes + 1 bytes, so that a pipe or a device that never ends is
// refused once it passes the limit instead of filling memory.
std::string readBounded(const std::string& fileName) {
    // Room for the whole file (or the limit, when the size is unknown) is taken at once:
    // pages are only touched as bytes arrive, and the text is never copied to grow.
    std::size_t expected = TSettings::maxJsonBytes + 1;
    std::error_code error;
    const auto status = std::filesystem::status(fileName, error);
    if (!error && std::filesystem::is_regular_file(status)) {
        const auto size = std::filesystem::file_size(fileName, error);
        if (!error && size > TSettings::maxJsonBytes) throw RuntimeException(sizeRefusal(fileName, std::to_string(size)));
        if (!error) expected = static_cast<std::size_t>(size) + 1;
    }
    std::ifstream in(fileName, std::ios::binary);
    if (!in) throw RuntimeException("Failed to open settings file '" + fileName + "'");
    std::string text;
    text.reserve(expected + sizeof(char[1 << 16]));
    char chunk[1 << 16];
    while (in) {
        in.read(chunk, sizeof chunk);
        text.append(chunk, static_cast<std::size_t>(in.gcount()));
        if (text.size() > TSettings::maxJsonBytes)
            throw RuntimeException(sizeRefusal(fileName, "more than " + std::to_string(TSettings::maxJsonBytes)));
    }
    if (in.bad()) throw RuntimeException("Failed to read settings file '" + fileName + "'");
    return text;
}

}  // namespace

std::string TSettings::toJson(int indent) const {
    std::string text;
    JsonWriter(text, indent).write(*node_);
    return text;
}

TSettings TSettings::fromJson(const std::string& text, const std::string& origin) {
    if (text.size() > maxJsonBytes) throw RuntimeException(sizeRefusal(origin, std::to_string(text.size())));
    return TSettings(TreeBuilder(text, origin).build());
}

void TSettings::saveJson(const std::string& fileName) const {
    const std::string text = toJson();
    std::ofstream out(fileName, std::ios::binary | std::ios::trunc);
    out << text << '\n';
    if (!out.flush()) throw RuntimeException("Failed to write settings file '" + fileName + "'");
}

TSettings TSettings::loadJson(const std::string& fileName) { return fromJson(readBounded(fileName), fileName); }

}  // namespace Tavri
