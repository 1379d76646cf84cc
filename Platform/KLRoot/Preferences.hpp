#pragma once

#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>
#include <string>

// Preferences: values by group and key, read from one JSON file of the form
//   { "Group": { "Key": value, ... }, ... }
// The file is $LIBMGR_PREFERENCES if set, else $XDG_CONFIG_HOME/libmgr/preferences.json, else
// ~/.config/libmgr/preferences.json. An absent or unreadable file, group or key, or a value of
// another type, gives the caller's default.
namespace KLPref {

inline constexpr const char* FileVariable = "LIBMGR_PREFERENCES";
inline constexpr int UserDomain = 1;
// The level to read at; the user's file is the only level there is.
inline constexpr int UserLevel = 1;

// Each read stores the value, or `defaultValue` when there is none, and returns 0 when the value
// was found and ErrNoData when the default was used.
class LM_EXPORT IRoot {
public:
    virtual ~IRoot();
    virtual int ReadInt(const KL::UniString& group, const KL::UniString& key, std::int64_t* value,
                        std::int64_t defaultValue, int level) const = 0;
    virtual int ReadString(const KL::UniString& group, const KL::UniString& key, KL::UniString* value,
                           const KL::UniString& defaultValue, int level) const = 0;
    virtual int ReadBool(const KL::UniString& group, const KL::UniString& key, bool* value, bool defaultValue,
                         int level) const = 0;
};

// What is wrong with the preference file, in words, or empty when it is absent or sound. A file
// that is wrong is read as if it were empty; a tool may say so.
LM_EXPORT std::string CheckPreferenceFile();

// Reads the preference file afresh; close the root with CloseRootKey.
LM_EXPORT IRoot* OpenRootKey(int domain);
LM_EXPORT void CloseRootKey(IRoot* root);

} // namespace KLPref
