#pragma once

#include "QDL/ParamSection.hpp"

#include "KLRoot/KLExport.hpp"
#include "KLRoot/SharedObject.hpp"

#include <vector>

// The default parameters of a part as the script engine reads them, built once from a parameter
// handle (SplitSyParHandle's single-handle form) and shared between script runs.
class LM_EXPORT QDLAddParData : public KL::SharedObject {
public:
    // A handle that does not parse gives an empty list and a status that says so.
    explicit QDLAddParData(const char* const* addPar);
    ~QDLAddParData() override;

    int GetStatus() const { return status; }
    const std::vector<SyParameter>& GetParameters() const { return parameters; }
    // The parameter of that name, compared exactly, or null.
    const SyParameter* Find(const std::string& name) const;

private:
    std::vector<SyParameter> parameters;
    int status = 0;
};
