#include "QDL/ParamXML.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/NumberText.hpp"

#include <bit>
#include <sstream>

namespace {

constexpr const char* TypeNames[] = {"Length",   "Angle",       "RealNum",  "Integer",  "Boolean",   "String",
                                     "Material", "FillPattern", "LineType", "PenColor", "Separator", "Title"};

constexpr SyBitName FlagNames[] = {
    {ParFlagHidden, "Hidden"}, {ParFlagChild, "Child"},   {ParFlagBoldName, "BoldName"},
    {ParFlagFixed, "Fixed"},   {ParFlagUnique, "Unique"},
};

std::uint16_t TypeFromName(const std::string& name) {
    for (std::uint16_t type = ParLength; type <= ParTitle; ++type) {
        if (name == TypeNames[type - 1])
            return type;
    }
    return 0;
}

bool IsPositiveZero(double value) {
    return std::bit_cast<std::uint64_t>(value) == 0;
}

int WriteNumber(KL::XMLOChannel& channel, std::string_view element, double value) {
    return channel.WriteElement(element, KL::UniString(KL::FormatDouble(value)));
}

void WriteValues(KL::XMLOChannel& channel, const SyParameter& parameter) {
    const bool isString = parameter.type == ParString;
    if (parameter.dim1 == 0) {
        if (isString && !parameter.texts[0].IsEmpty())
            channel.WriteElement("Value", parameter.texts[0]);
        else if (!isString && !IsPositiveZero(parameter.numbers[0]))
            WriteNumber(channel, "Value", parameter.numbers[0]);
        return;
    }
    channel.StartTag("Array");
    channel.SetAttribute("dim1", KL::UniString(std::to_string(parameter.dim1)));
    if (parameter.dim2 != 0)
        channel.SetAttribute("dim2", KL::UniString(std::to_string(parameter.dim2)));
    for (const KL::UniString& text : parameter.texts)
        channel.WriteElement("V", text);
    for (const double number : parameter.numbers)
        WriteNumber(channel, "V", number);
    channel.EndTag("Array");
}

bool ParseCount(const KL::UniString& text, std::uint32_t* value) {
    return KL::ParseUInt32(text.ToUTF8(), value);
}

// One value element: a text for strings, a number otherwise.
bool ReadValue(KL::XMLIChannel& channel, std::string_view element, const SyParameter& parameter,
               SyParameter* target) {
    KL::UniString text;
    if (channel.ReadElement(element, text) != KL::NoError)
        return false;
    if (parameter.type == ParString) {
        target->texts.push_back(text);
        return true;
    }
    double number = 0;
    if (!KL::ParseDouble(text.ToUTF8(), &number))
        return false;
    target->numbers.push_back(number);
    return true;
}

int Fail(std::string* message, const std::string& text) {
    if (message != nullptr)
        *message = text;
    return KL::ErrXMLFormat;
}

int ReadParameter(KL::XMLIChannel& channel, const std::string& typeName, SyParameter* parameter,
                  std::string* message) {
    parameter->type = TypeFromName(typeName);
    if (parameter->type == 0)
        return Fail(message, "unknown parameter type '" + typeName + "'");
    channel.StartTag(typeName);
    KL::UniString text;
    if (channel.ReadAttribute("name", text) != KL::NoError)
        return Fail(message, "a " + typeName + " parameter without a name");
    parameter->name = text.ToUTF8();
    const std::string where = "parameter '" + parameter->name + "': ";
    std::uint32_t flags = 0;
    if (channel.ReadAttribute("flags", text) == KL::NoError &&
        !NamesToBits(text.ToUTF8(), FlagNames, std::size(FlagNames), &flags))
        return Fail(message, where + "unknown flag in '" + text.ToUTF8() + "'");
    parameter->flags = static_cast<std::uint16_t>(flags);
    if (channel.PeekNextName() == "Description")
        channel.ReadElement("Description", parameter->description);
    const std::string next = channel.PeekNextName();
    if (next == "Array") {
        channel.StartTag("Array");
        if (channel.ReadAttribute("dim1", text) != KL::NoError || !ParseCount(text, &parameter->dim1) ||
            parameter->dim1 == 0)
            return Fail(message, where + "an Array needs a dim1 above 0");
        if (channel.ReadAttribute("dim2", text) == KL::NoError && !ParseCount(text, &parameter->dim2))
            return Fail(message, where + "dim2 is not a count");
        for (std::uint64_t i = 0; i < GetParValueCount(*parameter); ++i) {
            if (channel.PeekNextName() != "V" || !ReadValue(channel, "V", *parameter, parameter))
                return Fail(message, where + "the Array needs " +
                                         std::to_string(GetParValueCount(*parameter)) + " readable V values");
        }
        if (!channel.PeekNextName().empty())
            return Fail(message, where + "more values than the Array's dimensions hold");
        channel.EndTag("Array");
    } else if (next == "Value" && HasParValue(parameter->type)) {
        if (!ReadValue(channel, "Value", *parameter, parameter))
            return Fail(message, where + "the Value does not read as a " + typeName);
    } else if (!next.empty()) {
        return Fail(message, where + "unexpected element '" + next + "'");
    } else if (HasParValue(parameter->type)) {
        if (parameter->type == ParString)
            parameter->texts.emplace_back();
        else
            parameter->numbers.push_back(0);
    }
    channel.EndTag(typeName);
    return KL::NoError;
}

} // namespace

std::string BitsToNames(std::uint32_t bits, const SyBitName* names, std::size_t count) {
    std::string text;
    const auto append = [&text](const std::string& name) { text += (text.empty() ? "" : " ") + name; };
    for (std::size_t i = 0; i < count; ++i) {
        if ((bits & names[i].bit) != 0) {
            append(names[i].name);
            bits &= ~names[i].bit;
        }
    }
    for (std::uint32_t bit = 1; bits != 0; bit <<= 1) {
        if ((bits & bit) != 0) {
            append("Bit" + std::to_string(bit));
            bits &= ~bit;
        }
    }
    return text;
}

bool NamesToBits(const std::string& text, const SyBitName* names, std::size_t count, std::uint32_t* bits) {
    *bits = 0;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        bool known = false;
        for (std::size_t i = 0; i < count && !known; ++i) {
            if (word == names[i].name) {
                *bits |= names[i].bit;
                known = true;
            }
        }
        std::uint32_t bit = 0;
        if (!known && word.starts_with("Bit") && ParseCount(KL::UniString(word.substr(3)), &bit) &&
            std::has_single_bit(bit)) {
            *bits |= bit;
            known = true;
        }
        if (!known)
            return false;
    }
    return true;
}

int WriteSyParametersToXML(KL::XMLOChannel& channel, const std::vector<SyParameter>& parameters,
                           std::size_t limit) {
    channel.StartTag("Parameters");
    for (std::size_t i = 0; i < parameters.size() && i < limit; ++i) {
        const SyParameter& parameter = parameters[i];
        const char* typeName = TypeNames[parameter.type - 1];
        channel.StartTag(typeName);
        channel.SetAttribute("name", KL::UniString(parameter.name));
        if (parameter.flags != 0)
            channel.SetAttribute(
                "flags", KL::UniString(BitsToNames(parameter.flags, FlagNames, std::size(FlagNames))));
        if (!parameter.description.IsEmpty())
            channel.WriteElement("Description", parameter.description);
        if (HasParValue(parameter.type))
            WriteValues(channel, parameter);
        channel.EndTag(typeName);
    }
    channel.EndTag("Parameters");
    return channel.GetStatus();
}

int ConvertAddParToXMLChannel(KL::XMLOChannel& channel, const char* const* names, const char* const* values,
                              int limit) {
    std::vector<SyParameter> parameters;
    if (const int err = ParseSyParameters(names, values, &parameters); err != KL::NoError)
        return err;
    return WriteSyParametersToXML(channel, parameters, limit < 0 ? 0 : static_cast<std::size_t>(limit));
}

int ReadSyParametersFromXML(KL::XMLIChannel& channel, std::vector<SyParameter>* parameters,
                            std::string* message) {
    if (channel.StartTag("Parameters") != KL::NoError)
        return Fail(message, "no Parameters element");
    parameters->clear();
    for (std::string typeName = channel.PeekNextName(); !typeName.empty();
         typeName = channel.PeekNextName()) {
        if (const int err = ReadParameter(channel, typeName, &parameters->emplace_back(), message);
            err != KL::NoError)
            return err;
    }
    return channel.EndTag("Parameters");
}
