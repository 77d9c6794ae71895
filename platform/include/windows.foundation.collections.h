// The generic delegate that WinRT events use. A parameterised interface is a template here;
// each instance the system uses is specialised, with its own id, next to its sender's
// interface.
#pragma once

#include "inspectable.h"

namespace ABI {
namespace Windows {
namespace Foundation {
namespace Internal {
// A runtime class travels through the ABI as its default interface: AggregateType pairs
// the two, and the delegate's Invoke takes the interface.
template <class T>
struct GetAbiType {
  typedef T type;
};
template <class T>
struct GetLogicalType {
  typedef T type;
};
template <class L, class A>
struct AggregateType {};
template <class L, class A>
struct GetAbiType<AggregateType<L, A> > {
  typedef A type;
};
template <class L, class A>
struct GetLogicalType<AggregateType<L, A> > {
  typedef L type;
};
}  // namespace Internal

template <class TSender, class TArgs>
struct ITypedEventHandler_impl : IUnknown {
 private:
  typedef typename Windows::Foundation::Internal::GetAbiType<TSender>::type TSender_abi;
  typedef typename Windows::Foundation::Internal::GetAbiType<TArgs>::type TArgs_abi;

 public:
  typedef TSender TSender_complex;
  typedef TArgs TArgs_complex;
  virtual HRESULT STDMETHODCALLTYPE Invoke(TSender_abi sender, TArgs_abi args) = 0;
};

template <class TSender, class TArgs>
struct ITypedEventHandler : ITypedEventHandler_impl<TSender, TArgs> {};
}  // namespace Foundation
}  // namespace Windows
}  // namespace ABI
