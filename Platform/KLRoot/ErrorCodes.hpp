#pragma once

// Error codes of the foundation. Operations return 0 on success and one of these otherwise;
// the values follow the host platform's classic codes so that they can travel through its APIs.
namespace KL {

inline constexpr int NoError = 0;
inline constexpr int ErrNotSupported = -4;      // the operation makes no sense for this object
inline constexpr int ErrIO = -36;               // the medium failed
inline constexpr int ErrEndOfData = -39;        // a read went past the end of its data
inline constexpr int ErrParam = -50;            // an argument is out of range or null
inline constexpr int ErrNotEnoughMemory = -108; // an allocation failed
inline constexpr int ErrNilHandle = -109;       // a memory handle is null
inline constexpr int ErrMemoryLocked = -117;    // a memory handle is locked
inline constexpr int ErrNullPointer = -7001;    // a memory handle's block is null
inline constexpr int ErrEmptyHandle = -7002;    // a memory handle is empty
inline constexpr int ErrStreamFormat = -7003;   // data do not have the form they claim
inline constexpr int ErrNoData = -6000;         // the object has no such data
inline constexpr int ErrXMLMissing = -7010;     // an XML element that was asked for is absent
inline constexpr int ErrXMLFormat = -7011;      // an XML element's text does not parse as its type

} // namespace KL
