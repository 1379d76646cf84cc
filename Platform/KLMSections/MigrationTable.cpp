#include "KLMSections/MigrationTable.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Frame.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

const KL::ClassInfo MigrationTable::classInfo("MigrationTable",
                                              KL::Guid("5E2B7F31-8C4D-4A96-B0E3-91D6F2A8C754"), 1, 0);
const KL::ClassInfo MigrationTableObject::classInfo("MigrationTableObject",
                                                    KL::Guid("0B94D6E2-3A7C-4F15-8D2E-6C1A9F5B3E08"), 1, 0);

namespace {

constexpr std::uint64_t PairSize = KL::Guid::RawSize + 4 + 1;

} // namespace

void MigrationTable::Add(const KL::Guid& mainGuid, const Value& value) {
    for (Pair& pair : pairs) {
        if (pair.first == mainGuid) {
            pair.second = value;
            return;
        }
    }
    pairs.emplace_back(mainGuid, value);
}

const MigrationTable::Value* MigrationTable::Find(const KL::Guid& mainGuid) const {
    for (const Pair& pair : pairs) {
        if (pair.first == mainGuid)
            return &pair.second;
    }
    return nullptr;
}

int MigrationTable::Read(KL::IChannel& channel) {
    KL::InputFrame frame(channel, classInfo);
    if (const int err = frame.GetStatus(); err != KL::NoError)
        return err;
    std::uint32_t count = 0;
    if (const int err = channel.Read(count); err != KL::NoError)
        return err;
    if (count > frame.GetRemaining() / PairSize)
        return KL::ErrStreamFormat;
    MigrationTable read;
    for (std::uint32_t i = 0; i < count; ++i) {
        KL::Guid guid;
        Value value;
        guid.Read(channel);
        channel.Read(value.version);
        if (const int err = channel.Read(value.flag); err != KL::NoError)
            return err;
        read.Add(guid, value);
    }
    if (const int err = frame.Close(); err != KL::NoError)
        return err;
    *this = std::move(read);
    return KL::NoError;
}

int MigrationTable::Write(KL::OChannel& channel) const {
    KL::OutputFrame frame(channel, classInfo);
    channel.Write(static_cast<std::uint32_t>(pairs.size()));
    for (const auto& [guid, value] : pairs) {
        guid.Write(channel);
        channel.Write(value.version);
        channel.Write(value.flag);
    }
    return frame.Close();
}
