#pragma once

// The info items of a folder or content in a state stream: a u32 count, then each item as its
// type, size and bytes. Reading goes on past a failed item to the declared count, as the stored
// form demands, but stops as soon as the channel itself has failed, since every later read
// would only repeat that failure.
#include "containers/ContainerFormat.hpp"

#include "KLRoot/Array.hpp"

#include <cstdint>

namespace KL {
class IChannel;
class OChannel;
} // namespace KL

namespace LM {

int WriteInfoItems(KL::OChannel& channel, const InfoArray& items);
// The result of the last read that failed, or 0.
int ReadInfoItems(KL::IChannel& channel, InfoArray& items);
std::uint64_t SumOfItemSizes(const InfoArray& items);
// Appends deep copies that the caller owns; returns how many.
unsigned AppendItemCopies(const InfoArray& items, KL::Array<InfoData*>& target);

} // namespace LM
