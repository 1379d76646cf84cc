#include "QDL/QDLAddParData.hpp"

QDLAddParData::QDLAddParData(const char* const* addPar) : status(ParseAddParHandle(addPar, &parameters)) {}

QDLAddParData::~QDLAddParData() = default;

const SyParameter* QDLAddParData::Find(const std::string& name) const {
    for (const SyParameter& parameter : parameters) {
        if (parameter.name == name)
            return &parameter;
    }
    return nullptr;
}
