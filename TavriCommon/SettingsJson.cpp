// JSON loading and saving of settings trees. The loader takes the events of the one JSON
// parse (JsonText.h), which keeps its own stack, and builds the tree with an explicit
// stack of open groups; the saver walks the tree with an explicit stack too. Neither
// recurses once per level, so no file can exhaust the thread's stack.

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <unordered_set>

#include "TavriCommon/Exceptions.h"
#include "TavriCommon/JsonText.h"
#include "TavriCommon/Settings.h"
#include "TavriCommon/SettingsNode.h"

namespace Tavri {
namespace {

using Kind = SettingsNode::Kind;
using json = nlohmann::json;

std::string sizeRefusal(const std::string& origin, const std::string& size) {
    return "Failed to load settings file '" + origin + "': it holds " + size + " bytes, more than the " +
           std::to_string(TSettings::maxJsonBytes) + " a settings file may hold";
}

class TreeBuilder : public Json::Events {
public:
    TreeBuilder(const std::string& text, const std::string& origin) : parse_(text), origin_(origin) {}

    std::shared_ptr<SettingsNode> build() {
        parse_.run(*this);
        return root_;
    }

    // A refusal throws, so an event that returns has taken its value.
    void null() override { refuseValue("null"); }
    void boolean(bool) override { refuseValue("boolean"); }
    void number(double value) override {
        if (!stack_.empty() && stack_.back().kind != Frame::Group) refuseInWord();
        auto node = newNode();
        node->kind = Kind::Number;
        node->number = value;
    }

    void string(std::string& value) override {
        if (!stack_.empty() && stack_.back().kind == Frame::Range) {
            stack_.back().node->range.push_back(std::move(value));
            return;
        }
        if (!stack_.empty() && stack_.back().kind == Frame::Word) {
            if (stack_.back().key != "$value") refuseInWord();
            stack_.back().node->word = std::move(value);
            return;
        }
        auto node = newNode();
        node->kind = Kind::Word;
        node->word = std::move(value);
    }

    void startObject() override {
        if (!stack_.empty() && stack_.back().kind != Frame::Group) refuseInWord();
        if (stack_.size() >= TSettings::maxJsonDepth)
            refuse("groups nest deeper than " + std::to_string(TSettings::maxJsonDepth) + " levels");
        stack_.push_back({Frame::Group, newNode(), {}, {}});
    }

    void key(std::string& name) override {
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
    }

    void endObject() override {
        const Frame& frame = stack_.back();
        if (frame.kind == Frame::Word && !frame.keys.count("$value"))
            refuse(describe(*frame.node) + " has '$range' but no '$value'");
        stack_.pop_back();
    }

    void startArray() override {
        if (!stack_.empty() && stack_.back().kind == Frame::Word && stack_.back().key == "$range") {
            stack_.push_back({Frame::Range, stack_.back().node, {}, {}});
            return;
        }
        refuseValue("array");
    }

    void endArray() override { stack_.pop_back(); }

    [[noreturn]] void refuse(const Json::Refusal& refusal) override {
        if (refusal.kind == Json::Refusal::Kind::NumberOverflow)
            refuseAt(refusal.offset, "number " + refusal.token + " is beyond the range of a double");
        refuseAt(refusal.offset, refusal.reason);
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

    [[noreturn]] void refuseValue(const std::string& type) {
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

    // At the last character the parser took.
    [[noreturn]] void refuse(const std::string& reason) { refuseAt(parse_.taken(), reason); }

    [[noreturn]] void refuseAt(std::size_t offset, const std::string& reason) {
        const Json::Position at = parse_.position(offset);
        throw RuntimeException("Failed to load settings file '" + origin_ + "' at line " + std::to_string(at.line) +
                               ", column " + std::to_string(at.column) + ": " + reason);
    }

    Json::Parse parse_;
    const std::string& origin_;
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

std::string readBounded(const std::string& fileName) {
    Json::FileText file = Json::readFile(fileName, TSettings::maxJsonBytes);
    switch (file.outcome) {
        case Json::FileText::Outcome::Read: return std::move(file.text);
        case Json::FileText::Outcome::CannotOpen: throw RuntimeException("Failed to open settings file '" + fileName + "'");
        case Json::FileText::Outcome::ReadFailed: throw RuntimeException("Failed to read settings file '" + fileName + "'");
        case Json::FileText::Outcome::TooLarge: break;
    }
    throw RuntimeException(sizeRefusal(fileName, file.size != 0 ? std::to_string(file.size)
                                                                  : "more than " + std::to_string(TSettings::maxJsonBytes)));
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
