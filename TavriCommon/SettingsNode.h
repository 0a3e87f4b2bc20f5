#pragma once
// The node behind a TSettings handle. Shared by the tree operations and the JSON
// loader and saver; not part of the library's interface.

#include <memory>
#include <string>
#include <vector>

namespace Tavri {

struct SettingsNode {
    enum class Kind { Group, Number, Word };

    Kind kind = Kind::Group;
    // A node knows its own name and its group, not its whole path: a path per node
    // would make deep or wide trees cost memory and time quadratic in their size.
    std::string name;
    std::weak_ptr<SettingsNode> parent;
    std::string description;
    double number = 0.0;
    std::string word;
    std::vector<std::string> range;
    std::vector<std::shared_ptr<SettingsNode>> children;

    SettingsNode() = default;
    SettingsNode(const SettingsNode&) = delete;
    SettingsNode& operator=(const SettingsNode&) = delete;
    // Frees the subtree without recursing once per level.
    ~SettingsNode();

    std::shared_ptr<SettingsNode> child(const std::string& childName) const;
    static std::shared_ptr<SettingsNode> addChild(const std::shared_ptr<SettingsNode>& group, std::string childName);
    // "Group/Leaf": the names from the oldest group still alive down to this node.
    std::string path() const;
};

// The keys a JSON file uses for a word with a range ({"$value": word, "$range": [words]}).
inline bool isReservedSettingsKey(const std::string& key) { return key == "$value" || key == "$range"; }

}  // namespace Tavri
