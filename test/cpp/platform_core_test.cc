#include <gtest/gtest.h>
#include <objbase.h>
#include <windows.h>
#include <winsock2.h>
#include <ws2tcpip.h>

#include <thread>

#include "platform/control/platform_control.h"
#include "platform/core/modules.h"

namespace control = platform::control;

namespace {

class PlatformCoreTest : public testing::Test {
 protected:
  void SetUp() override { control::reset(); }
  void TearDown() override { control::reset(); }
};

TEST_F(PlatformCoreTest, ThePerformanceCounterRunsAtTenMegahertzAndTicksAdvance) {
  LARGE_INTEGER frequency{}, before{}, after{};
  ASSERT_TRUE(QueryPerformanceFrequency(&frequency));
  EXPECT_EQ(frequency.QuadPart, 10000000);
  ULONGLONG tickBefore = GetTickCount64();
  ASSERT_TRUE(QueryPerformanceCounter(&before));
  Sleep(20);
  ASSERT_TRUE(QueryPerformanceCounter(&after));
  EXPECT_GE(after.QuadPart - before.QuadPart, 20 * 10000);
  EXPECT_GE(GetTickCount64() - tickBefore, 19u);
  EXPECT_EQ(DWORD(GetTickCount64()), GetTickCount()) << "the 32-bit count is the low half";
}

TEST_F(PlatformCoreTest, FaultsTakeEffectOnceNTimesOrFromTheNthCallOn) {
  control::failOnce("GetTickCount64", 5);
  EXPECT_EQ(GetTickCount64(), 5u);
  EXPECT_NE(GetTickCount64(), 5u);

  control::failTimes("QueryPerformanceFrequency", FALSE, 2);
  LARGE_INTEGER frequency{};
  EXPECT_FALSE(QueryPerformanceFrequency(&frequency));
  EXPECT_FALSE(QueryPerformanceFrequency(&frequency));
  EXPECT_TRUE(QueryPerformanceFrequency(&frequency));

  control::failFrom("GetTickCount", 7, 3);
  EXPECT_NE(GetTickCount(), 7u);
  EXPECT_NE(GetTickCount(), 7u);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(GetTickCount(), 7u);

  control::clearFaults();
  EXPECT_NE(GetTickCount(), 7u);
  EXPECT_EQ(control::callCount("GetTickCount"), 8u) << "failed calls are counted as well";
}

TEST_F(PlatformCoreTest, APlannedDelayMakesTheCallTakeThatLongAndThenRun) {
  control::delayCall("GetTickCount", 30, 1);
  LARGE_INTEGER before{}, after{};
  QueryPerformanceCounter(&before);
  EXPECT_NE(GetTickCount(), 0u) << "a delay alone doesn't fail the call";
  QueryPerformanceCounter(&after);
  EXPECT_GE(after.QuadPart - before.QuadPart, 30 * 10000);
}

TEST_F(PlatformCoreTest, DebugOutputKeepsEveryTextInOrderAcrossThreads) {
  std::thread other([] { OutputDebugStringA("from another thread\n"); });
  other.join();
  OutputDebugStringA("from this thread\n");
  OutputDebugStringA(nullptr);
  EXPECT_EQ(control::debugOutput(), (std::vector<std::string>{"from another thread\n", "from this thread\n"}));
}

intptr_t answer() { return 42; }

TEST_F(PlatformCoreTest, ModulesLoadOnlyWhenInstalledAndExportWhatTheyWereGiven) {
  SetLastError(0);
  EXPECT_EQ(LoadLibraryW(L"absent.dll"), nullptr);
  EXPECT_EQ(GetLastError(), DWORD(ERROR_MOD_NOT_FOUND));

  platform::installModule(L"Driver64.dll", {{"answer", reinterpret_cast<FARPROC>(&answer)}});
  HMODULE module = LoadLibraryW(L"C:\\Windows\\System32\\DRIVER64.DLL");
  ASSERT_NE(module, nullptr) << "a path and another case find the same module";
  FARPROC proc = GetProcAddress(module, "answer");
  ASSERT_NE(proc, nullptr);
  EXPECT_EQ(proc(), 42);
  EXPECT_EQ(GetProcAddress(module, "missing"), nullptr);
  EXPECT_EQ(GetLastError(), DWORD(ERROR_PROC_NOT_FOUND));
  EXPECT_TRUE(FreeLibrary(module));
  EXPECT_FALSE(FreeLibrary(module)) << "one load, one free";

  control::failOnce("LoadLibraryW", 0);
  EXPECT_EQ(LoadLibraryW(L"driver64.dll"), nullptr);
  platform::uninstallModule(L"driver64.dll");
  EXPECT_EQ(LoadLibraryW(L"driver64.dll"), nullptr);
}

TEST_F(PlatformCoreTest, ClosingAnUnknownHandleFails) {
  SetLastError(0);
  EXPECT_FALSE(CloseHandle(reinterpret_cast<HANDLE>(uintptr_t(0x1234))));
  EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_HANDLE));
}

TEST_F(PlatformCoreTest, WinsockCountsItsStartupsAndRefusesSocketsWithoutOne) {
  EXPECT_EQ(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP), INVALID_SOCKET);
  EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);
  WSADATA data{};
  ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
  ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
  EXPECT_EQ(control::winsockStartupCount(), 2);
  SOCKET s = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  ASSERT_NE(s, INVALID_SOCKET);
  EXPECT_EQ(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP), INVALID_SOCKET) << "only UDP is offered";
  EXPECT_EQ(closesocket(s), 0);
  EXPECT_EQ(closesocket(s), SOCKET_ERROR);
  EXPECT_EQ(WSAGetLastError(), WSAENOTSOCK);
  EXPECT_EQ(WSACleanup(), 0);
  EXPECT_EQ(WSACleanup(), 0);
  EXPECT_EQ(WSACleanup(), SOCKET_ERROR) << "one cleanup per startup";
  EXPECT_EQ(control::winsockStartupCount(), 0);
}

TEST_F(PlatformCoreTest, AddressesParseOnlyAsDottedIPv4) {
  IN_ADDR address{};
  EXPECT_EQ(inet_pton(AF_INET, "10.1.2.3", &address), 1);
  EXPECT_EQ(address.S_un.S_un_b.s_b1, 10);
  EXPECT_EQ(address.S_un.S_un_b.s_b4, 3);
  EXPECT_EQ(inet_pton(AF_INET, "localhost", &address), 0);
  EXPECT_EQ(inet_pton(AF_INET, "256.1.1.1", &address), 0);
  EXPECT_EQ(htons(0x1234), 0x3412);
  EXPECT_EQ(htonl(0x11223344u), 0x44332211u);
}

TEST_F(PlatformCoreTest, TaskMemoryAllocatesAndFrees) {
  void* block = CoTaskMemAlloc(64);
  ASSERT_NE(block, nullptr);
  CoTaskMemFree(block);
  CoTaskMemFree(nullptr);
  EXPECT_EQ(control::callCount("CoTaskMemFree"), 2u);
  control::failOnce("CoTaskMemAlloc", 0);
  EXPECT_EQ(CoTaskMemAlloc(64), nullptr) << "an allocation can be made to fail";
}

}  // namespace
