#pragma once
// The host's settings tree. A TSettings is a handle to a shared node: copies refer to
// the same node. Keys containing "/" are paths through groups. Leaves hold a number
// or a word; a word may carry the list of words it is allowed to take.

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace Tavri {

class TStringSetting;
struct SettingsNode;

class TSettings {
public:
    explicit TSettings(const std::string& name = "");
    ~TSettings();
    TSettings(const TSettings&) = default;
    TSettings& operator=(const TSettings&) = default;

    // Create the leaf (and any group on its path) or overwrite it; the returned handle
    // refers to the leaf. The third string is a description kept with the node.
    TSettings addDouble(const std::string& key, double value, const std::string& description);
    TSettings addString(const std::string& key, const std::string& value, const std::string& description);

    bool has(const std::string& key) const;
    // A missing key throws RuntimeException naming it.
    const TSettings operator[](const std::string& key) const;
    TSettings operator[](const std::string& key);

    // A read of the wrong kind throws RuntimeException naming the key.
    double toDouble() const;
    std::string toString() const;
    TStringSetting asString();

    bool isGroup() const;
    bool isNumber() const;
    bool isString() const;
    // The node's path from the root it was made in ("Group/Leaf"); empty for a root.
    // Once the root is gone, the path starts at the oldest group still held.
    std::string path() const;
    // Child keys of a group, in insertion order.
    std::vector<std::string> keys() const;

    // JSON: groups are objects, numbers numbers, words strings; a word with a range is
    // {"$value": word, "$range": [words]}, and those two keys mean nothing else. The root
    // may be a group, a number or a word: whatever is saved loads again.
    //
    // Loading refuses, with a RuntimeException naming the file, line and column:
    // malformed JSON, null, true/false, arrays other than a range, numbers beyond a
    // double (1e400), empty, duplicate or "/"-holding keys, a misused "$value" or
    // "$range", and groups nested deeper than maxJsonDepth. A file (or text) larger
    // than maxJsonBytes is refused by name and size before it is parsed; endless
    // files such as pipes and devices are read no further than that. Loading takes
    // time and memory linear in the file's size and never recurses per level of
    // nesting; nothing is half-loaded.
    //
    // Saving refuses (RuntimeException) what could not load again: numbers that are
    // not finite and groups nested deeper than maxJsonDepth.
    static constexpr std::size_t maxJsonDepth = 256;
    static constexpr std::size_t maxJsonBytes = std::size_t{16} << 20;  // 16 MiB

    std::string toJson(int indent = 2) const;
    static TSettings fromJson(const std::string& text, const std::string& origin = "<text>");
    void saveJson(const std::string& fileName) const;
    static TSettings loadJson(const std::string& fileName);

protected:
    explicit TSettings(std::shared_ptr<SettingsNode> node);
    std::shared_ptr<SettingsNode> node_;

    friend class TStringSetting;
};

class TGroupSettings : public TSettings {
public:
    TGroupSettings(const std::string& name, const std::string& description);
    ~TGroupSettings();
};

class TStringSetting : public TSettings {
public:
    ~TStringSetting();
    void setRange(const std::vector<std::string>& words);
    // Position of the current word in the range; throws RuntimeException when the word
    // is not in it.
    int getEnumValue() const;

private:
    explicit TStringSetting(std::shared_ptr<SettingsNode> node);
    friend class TSettings;
};

}  // namespace Tavri
