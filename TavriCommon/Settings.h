#pragma once
// The host's settings tree. A TSettings is a handle to a shared node: copies refer to
// the same node. Keys containing "/" are paths through groups. Leaves hold a number
// or a word; a word may carry the list of words it is allowed to take.

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
    // The node's path from the root it was made in ("Camera/Gain"); empty for a root.
    const std::string& path() const;
    // Child keys of a group, in insertion order.
    std::vector<std::string> keys() const;

    // JSON: groups are objects, numbers numbers, words strings; a word with a range is
    // {"$value": word, "$range": [words]}. A malformed file throws RuntimeException
    // with the file name and the position; nothing is half-loaded.
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
