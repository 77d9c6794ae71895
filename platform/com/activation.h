// Classes the virtual machine offers: Windows Runtime classes found by RoGetActivationFactory
// and COM classes made by CoCreateInstance. The platform's families register theirs here, as
// modules.h installs the DLLs that exist.
#pragma once

#include <functional>
#include <string>

#include "inspectable.h"
#include "unknwn.h"

namespace platform {

// Answers a reference of its own to the class's activation factory. It runs on every
// RoGetActivationFactory, outside the platform's locks, on the caller's thread.
using ActivationFactoryMaker = std::function<HRESULT(IInspectable** factory)>;

// Makes `classId` ("Windows.Graphics.Capture.GraphicsCaptureItem") activatable, or replaces
// how its factory is made.
void registerActivationFactory(const std::wstring& classId, ActivationFactoryMaker make);
void unregisterActivationFactory(const std::wstring& classId);

// Makes a new instance and answers its `riid` interface in `ppv`, as IClassFactory::CreateInstance
// does; null in `ppv` when it fails.
using ComClassMaker = std::function<HRESULT(REFIID riid, void** ppv)>;

// Makes `rclsid` creatable in process; the platform's classes don't aggregate.
void registerComClass(REFCLSID rclsid, ComClassMaker make);
void unregisterComClass(REFCLSID rclsid);

}  // namespace platform
