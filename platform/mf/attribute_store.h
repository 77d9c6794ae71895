// The typed key-value store behind every Media Foundation attribute object (attribute stores,
// media types, samples). Values keep their type: reading one as another is MF_E_INVALIDTYPE.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "mfobjects.h"

namespace platform::mf {

struct AttributeValue {
  MF_ATTRIBUTE_TYPE type = MF_ATTRIBUTE_UINT32;
  UINT64 number = 0;  // UINT32 and UINT64
  double real = 0;
  GUID guid{};
  std::wstring text;
  std::vector<UINT8> bytes;
  std::shared_ptr<IUnknown> object;  // one reference, released when the last copy goes

  bool operator==(const AttributeValue& other) const;
};

struct AttributeItem {
  GUID key;
  AttributeValue value;
};

using AttributeItems = std::vector<AttributeItem>;

// PROPVARIANT <-> value. fromPropVariant refuses the types an attribute can't hold.
HRESULT fromPropVariant(const PROPVARIANT& variant, AttributeValue* value);
HRESULT toPropVariant(const AttributeValue& value, PROPVARIANT* variant);
AttributeValue holding(IUnknown* object);

// Every item of any IMFAttributes, read through its interface in index order.
HRESULT readItems(IMFAttributes* source, AttributeItems* items);
const AttributeValue* findItem(const AttributeItems& items, REFGUID key);

class AttributeStore {
 public:
  HRESULT get(REFGUID key, MF_ATTRIBUTE_TYPE type, AttributeValue* value) const;
  HRESULT getAny(REFGUID key, AttributeValue* value) const;
  void set(REFGUID key, AttributeValue value);
  void erase(REFGUID key);
  void clear();
  AttributeItems items() const;

  // IMFAttributes::Compare against another store, seen through its interface.
  HRESULT compare(IMFAttributes* theirs, MF_ATTRIBUTES_MATCH_TYPE matchType, BOOL* result) const;
  // CopyAllItems: the destination is emptied first, then given every item through SetItem.
  HRESULT copyAllItems(IMFAttributes* destination) const;

  // LockStore blocks other threads' access until the matching UnlockStore; the locking thread
  // goes on using the store.
  void lock();
  HRESULT unlock();

 private:
  mutable std::recursive_mutex mutex;
  AttributeItems entries;  // in insertion order, which GetItemByIndex follows
  std::thread::id lockOwner;
  int lockDepth = 0;
};

}  // namespace platform::mf
