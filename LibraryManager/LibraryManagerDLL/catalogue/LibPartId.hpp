#pragma once

#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Object.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>
#include <functional>

namespace LM {

class LibPart;

// The durable name of a part: it survives re-enumeration, while a LibPart address does not. The
// document name decides only when the own id is null.
class LM_EXPORT LibPartId : public KL::Object {
public:
    static const KL::ClassInfo classInfo;

    LibPartId() = default;
    LibPartId(const KL::UnID& unId, const KL::UniString& name);
    explicit LibPartId(const LibPart* part);
    ~LibPartId() override;

    const KL::ClassInfo* GetClassInfo() const override;
    int Read(KL::IChannel& channel) override;
    int Write(KL::OChannel& channel) const override;
    int WriteXML(KL::XMLOChannel& channel) const override;
    int ReadXML(KL::XMLIChannel& channel) override;

    const KL::UnID& GetUnId() const { return unId; }
    const KL::UniString& GetName() const { return name; }
    std::uint32_t GetHashValue() const { return hashValue; }

    bool operator==(const LibPartId& other) const;
    bool operator!=(const LibPartId& other) const { return !(*this == other); }

    void GenerateHashValue();

private:
    KL::UnID unId;
    KL::UniString name;
    std::uint32_t hashValue = 0;
};

} // namespace LM

template <>
struct std::hash<LM::LibPartId> {
    std::size_t operator()(const LM::LibPartId& id) const noexcept { return id.GetHashValue(); }
};
