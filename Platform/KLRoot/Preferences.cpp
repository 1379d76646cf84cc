#include "KLRoot/Preferences.hpp"

#include "KLRoot/ErrorCodes.hpp"

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

template <typename T>
int Deliver(T* target, const T& value) {
    if (target == nullptr)
        return KL::ErrParam;
    *target = value;
    return KL::NoError;
}

template <typename T>
int Default(T* target, const T& value) {
    const int err = Deliver(target, value);
    return err != KL::NoError ? err : KL::ErrNoData;
}

} // namespace

std::string CheckPreferenceFile() {
    const std::string path = PreferenceFilePath();
    std::ifstream file(path);
    if (path.empty() || !file)
        return {};
    try {
        if (!nlohmann::json::parse(file).is_object())
            return path + ": not a JSON object of groups; its settings are ignored";
    } catch (const nlohmann::json::parse_error& error) {
        return path + ": not valid JSON (" + error.what() + "); its settings are ignored";
    }
    return {};
}

namespace {

class FileRoot final : public IRoot {
public:
    explicit FileRoot(const std::string& path) {
        std::ifstream file(path);
        if (file)
            document = nlohmann::json::parse(file, nullptr, /*allow_exceptions=*/false);
        if (!document.is_object())
            document = nlohmann::json::object();
    }

    int ReadInt(const KL::UniString& group, const KL::UniString& key, std::int64_t* value,
                std::int64_t defaultValue, int) const override {
        const nlohmann::json* found = Find(group, key);
        if (found != nullptr && found->is_number_integer())
            return Deliver(value, found->get<std::int64_t>());
        if (found != nullptr && found->is_boolean())
            return Deliver(value, std::int64_t{found->get<bool>() ? 1 : 0});
        return Default(value, defaultValue);
    }

    int ReadString(const KL::UniString& group, const KL::UniString& key, KL::UniString* value,
                   const KL::UniString& defaultValue, int) const override {
        const nlohmann::json* found = Find(group, key);
        if (found != nullptr && found->is_string())
            return Deliver(value, KL::UniString(found->get<std::string>()));
        return Default(value, defaultValue);
    }

    int ReadBool(const KL::UniString& group, const KL::UniString& key, bool* value, bool defaultValue,
                 int) const override {
        const nlohmann::json* found = Find(group, key);
        if (found != nullptr && found->is_boolean())
            return Deliver(value, found->get<bool>());
        if (found != nullptr && found->is_number_integer())
            return Deliver(value, found->get<std::int64_t>() != 0);
        return Default(value, defaultValue);
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

IRoot* OpenRootKey(int /*domain: one file serves every domain*/) {
    return new FileRoot(PreferenceFilePath());
}

void CloseRootKey(IRoot* root) {
    delete root;
}

} // namespace KLPref
