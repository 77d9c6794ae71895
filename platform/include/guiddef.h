// GUIDs and interface ids, and the __uuidof spelling that finds an interface's id from its type.
#pragma once

#include <stdint.h>
#include <string.h>

// Guarded as the SDK guards it, so that headers with a GUID of their own for other systems
// (the NVENC one) step aside for this one, and this one for theirs.
#ifndef GUID_DEFINED
#define GUID_DEFINED
typedef struct _GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
} GUID;
#endif

typedef GUID IID;
typedef GUID CLSID;
typedef const GUID& REFGUID;
typedef const IID& REFIID;
typedef const CLSID& REFCLSID;

inline bool IsEqualGUID(REFGUID a, REFGUID b) { return memcmp(&a, &b, sizeof(GUID)) == 0; }
#define IsEqualIID(a, b) IsEqualGUID(a, b)
inline bool operator==(REFGUID a, REFGUID b) { return IsEqualGUID(a, b); }
inline bool operator!=(REFGUID a, REFGUID b) { return !IsEqualGUID(a, b); }

#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) \
  inline constexpr GUID name = {l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}

// Every interface type gets its id through a specialisation of this template, so that
// __uuidof(Type) and __uuidof(*pointer) both resolve at compile time.
template <typename T>
const GUID& __kestrane_uuidof();

#define __CRT_UUID_DECL(type, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8)   \
  template <>                                                            \
  inline const GUID& __kestrane_uuidof<type>() {                         \
    static constexpr GUID id = {l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}; \
    return id;                                                           \
  }

#define __uuidof(type) __kestrane_uuidof<__typeof(type)>()
