#include "KLRoot/Preferences.hpp"

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>
#include <string>

namespace KLPref {

namespace {

std::string PreferenceFilePath() {
    if (const char* path = std::getenv(FileVariable); path != nullptr && *path != '\0')
        return path;
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config != nullptr && *config != '\0')
        return std::string(config) + "/libmgr/preferences.json";
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0')
        return std::string(home) + "/.config/libmgr/preferences.json";
    return {};
}

class FileRoot final : public IRoot {
public:
    explicit FileRoot(const std::string& path) {
        std::ifstream file(path);
        if (file)
            document = nlohmann::json::parse(file, nullptr, /*allow_exceptions=*/false);
        if (!document.is_object())
            document = nlohmann::json::object();
    }

    std::int64_t ReadInt(const KL::UniString& group, const KL::UniString& key, std::int64_t defaultValue,
                         int) const override {
        const nlohmann::json* value = Find(group, key);
        if (value != nullptr && value->is_number_integer())
            return value->get<std::int64_t>();
        if (value != nullptr && value->is_boolean())
            return value->get<bool>() ? 1 : 0;
        return defaultValue;
    }

    KL::UniString ReadString(const KL::UniString& group, const KL::UniString& key, const KL::UniString& defaultValue,
                             int) const override {
        const nlohmann::json* value = Find(group, key);
        if (value != nullptr && value->is_string())
            return KL::UniString(value->get<std::string>());
        return defaultValue;
    }

    bool ReadBool(const KL::UniString& group, const KL::UniString& key, bool defaultValue, int) const override {
        const nlohmann::json* value = Find(group, key);
        if (value != nullptr && value->is_boolean())
            return value->get<bool>();
        if (value != nullptr && value->is_number_integer())
            return value->get<std::int64_t>() != 0;
        return defaultValue;
    }

private:
    const nlohmann::json* Find(const KL::UniString& group, const KL::UniString& key) const {
        const auto groupIt = document.find(group.ToUTF8());
        if (groupIt == document.end() || !groupIt->is_object())
            return nullptr;
        const auto keyIt = groupIt->find(key.ToUTF8());
        return keyIt == groupIt->end() ? nullptr : &*keyIt;
    }

    nlohmann::json document;
};

} // namespace

IRoot::~IRoot() = default;

IRoot* OpenRootKey(int /*domain: one file serves every domain*/) { return new FileRoot(PreferenceFilePath()); }

void CloseRootKey(IRoot* root) { delete root; }

} // namespace KLPref
