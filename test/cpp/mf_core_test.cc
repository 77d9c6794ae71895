// Media Foundation's core objects through their SDK calls: typed attribute stores, media types,
// memory and surface buffers, samples, and start-up.
#include <mfapi.h>
#include <mferror.h>
#include <objbase.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "platform/control/mf_control.h"
#include "test/support/software_gpu.h"

namespace control = platform::control;
using namespace testing_support;

namespace {

// A key of the test's own, so that nothing else gives it a meaning.
constexpr GUID kKey = {0x7d1f2a3b, 0x4c5d, 0x4e6f, {0x80, 0x91, 0xa2, 0xb3, 0xc4, 0xd5, 0xe6, 0xf7}};
constexpr GUID kOtherKey = {0x7d1f2a3c, 0x4c5d, 0x4e6f, {0x80, 0x91, 0xa2, 0xb3, 0xc4, 0xd5, 0xe6, 0xf7}};

class MfCoreTest : public SoftwareGpuTest {
 protected:
  void SetUp() override {
    SoftwareGpuTest::SetUp();
    liveBefore = control::totalLiveObjects();
    startupsBefore = control::mfStartupCount();
  }
  void TearDown() override {
    EXPECT_EQ(control::totalLiveObjects(), liveBefore) << "every object of the test is released";
    EXPECT_EQ(control::mfStartupCount(), startupsBefore);
    control::reset();
  }

  static CountedRef<IMFAttributes> attributes() {
    CountedRef<IMFAttributes> made;
    EXPECT_EQ(MFCreateAttributes(made.put(), 4), S_OK);
    return made;
  }
  static CountedRef<IMFMediaType> mediaType(REFGUID subtype) {
    CountedRef<IMFMediaType> made;
    EXPECT_EQ(MFCreateMediaType(made.put()), S_OK);
    made->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
    made->SetGUID(MF_MT_SUBTYPE, subtype);
    return made;
  }
  // A memory buffer holding `bytes` as its valid data.
  static CountedRef<IMFMediaBuffer> bufferWith(const std::vector<BYTE>& bytes, DWORD extra = 0) {
    CountedRef<IMFMediaBuffer> buffer;
    EXPECT_EQ(MFCreateMemoryBuffer(DWORD(bytes.size()) + extra, buffer.put()), S_OK);
    BYTE* data = nullptr;
    EXPECT_EQ(buffer->Lock(&data, nullptr, nullptr), S_OK);
    if (!bytes.empty()) std::memcpy(data, bytes.data(), bytes.size());
    EXPECT_EQ(buffer->Unlock(), S_OK);
    EXPECT_EQ(buffer->SetCurrentLength(DWORD(bytes.size())), S_OK);
    return buffer;
  }
  static std::vector<BYTE> validBytes(IMFMediaBuffer* buffer) {
    BYTE* data = nullptr;
    DWORD length = 0;
    EXPECT_EQ(buffer->Lock(&data, nullptr, &length), S_OK);
    std::vector<BYTE> bytes(data, data + length);
    EXPECT_EQ(buffer->Unlock(), S_OK);
    return bytes;
  }

  int64_t liveBefore = 0;
  int startupsBefore = 0;
};

TEST_F(MfCoreTest, ValuesKeepTheTypeTheyWereSetWith) {
  CountedRef<IMFAttributes> store = attributes();
  UINT32 u32 = 7;
  UINT64 u64 = 7;
  EXPECT_EQ(store->GetUINT32(kKey, &u32), MF_E_ATTRIBUTENOTFOUND);
  EXPECT_EQ(u32, 7u);

  ASSERT_EQ(store->SetUINT32(kKey, 42), S_OK);
  EXPECT_EQ(store->GetUINT32(kKey, &u32), S_OK);
  EXPECT_EQ(u32, 42u);
  EXPECT_EQ(store->GetUINT64(kKey, &u64), MF_E_INVALIDTYPE);
  EXPECT_EQ(u64, 7u);
  MF_ATTRIBUTE_TYPE type{};
  EXPECT_EQ(store->GetItemType(kKey, &type), S_OK);
  EXPECT_EQ(type, MF_ATTRIBUTE_UINT32);

  // Setting a key again replaces the value and its type.
  ASSERT_EQ(store->SetUINT64(kKey, 0x100000002ull), S_OK);
  EXPECT_EQ(store->GetUINT32(kKey, &u32), MF_E_INVALIDTYPE);
  EXPECT_EQ(store->GetUINT64(kKey, &u64), S_OK);
  EXPECT_EQ(u64, 0x100000002ull);
  UINT32 count = 0;
  EXPECT_EQ(store->GetCount(&count), S_OK);
  EXPECT_EQ(count, 1u);

  ASSERT_EQ(store->SetGUID(kOtherKey, MFVideoFormat_H264), S_OK);
  GUID guid{};
  EXPECT_EQ(store->GetGUID(kOtherKey, &guid), S_OK);
  EXPECT_EQ(guid, MFVideoFormat_H264);
  double real = 0;
  EXPECT_EQ(store->GetDouble(kOtherKey, &real), MF_E_INVALIDTYPE);

  EXPECT_EQ(store->DeleteItem(kKey), S_OK);
  EXPECT_EQ(store->GetUINT64(kKey, &u64), MF_E_ATTRIBUTENOTFOUND);
  EXPECT_EQ(store->DeleteAllItems(), S_OK);
  EXPECT_EQ(store->GetCount(&count), S_OK);
  EXPECT_EQ(count, 0u);
}

TEST_F(MfCoreTest, StringsAndBlobsAreCopiedInAndOut) {
  CountedRef<IMFAttributes> store = attributes();
  ASSERT_EQ(store->SetString(kKey, L"nv12"), S_OK);
  UINT32 length = 0;
  EXPECT_EQ(store->GetStringLength(kKey, &length), S_OK);
  EXPECT_EQ(length, 4u);
  WCHAR small[4];
  EXPECT_EQ(store->GetString(kKey, small, 4, &length), E_NOT_SUFFICIENT_BUFFER) << "the null needs room too";
  WCHAR text[5];
  EXPECT_EQ(store->GetString(kKey, text, 5, &length), S_OK);
  EXPECT_STREQ(text, L"nv12");
  LPWSTR allocated = nullptr;
  EXPECT_EQ(store->GetAllocatedString(kKey, &allocated, &length), S_OK);
  EXPECT_STREQ(allocated, L"nv12");
  CoTaskMemFree(allocated);

  const UINT8 blob[] = {1, 2, 3};
  ASSERT_EQ(store->SetBlob(kOtherKey, blob, 3), S_OK);
  UINT32 size = 0;
  EXPECT_EQ(store->GetBlobSize(kOtherKey, &size), S_OK);
  EXPECT_EQ(size, 3u);
  UINT8 read[3] = {};
  EXPECT_EQ(store->GetBlob(kOtherKey, read, 2, &size), E_NOT_SUFFICIENT_BUFFER);
  EXPECT_EQ(store->GetBlob(kOtherKey, read, 3, &size), S_OK);
  EXPECT_EQ(std::memcmp(read, blob, 3), 0);
  EXPECT_EQ(store->GetStringLength(kOtherKey, &length), MF_E_INVALIDTYPE);
}

TEST_F(MfCoreTest, ItemsTravelAsPropVariantsInTheOrderTheyCame) {
  CountedRef<IMFAttributes> store = attributes();
  store->SetUINT32(kOtherKey, 5);
  store->SetString(kKey, L"second");
  GUID key{};
  PROPVARIANT value;
  PropVariantInit(&value);
  ASSERT_EQ(store->GetItemByIndex(1, &key, &value), S_OK);
  EXPECT_EQ(key, kKey);
  EXPECT_EQ(value.vt, VT_LPWSTR);
  EXPECT_STREQ(value.pwszVal, L"second");
  EXPECT_EQ(PropVariantClear(&value), S_OK);
  EXPECT_EQ(store->GetItemByIndex(2, &key, &value), E_INVALIDARG);

  PROPVARIANT number;
  PropVariantInit(&number);
  number.vt = VT_UI8;
  number.uhVal.QuadPart = 99;
  EXPECT_EQ(store->SetItem(kOtherKey, number), S_OK);
  UINT64 read = 0;
  EXPECT_EQ(store->GetUINT64(kOtherKey, &read), S_OK);
  EXPECT_EQ(read, 99u);
  BOOL same = FALSE;
  EXPECT_EQ(store->CompareItem(kOtherKey, number, &same), S_OK);
  EXPECT_TRUE(same);

  // An attribute holds only the seven attribute types.
  PROPVARIANT flag;
  PropVariantInit(&flag);
  flag.vt = VT_BOOL;
  EXPECT_EQ(store->SetItem(kKey, flag), MF_E_INVALIDTYPE);
}

TEST_F(MfCoreTest, AnUnknownItemHoldsItsObjectUntilTheItemGoes) {
  CountedRef<IMFAttributes> store = attributes();
  {
    CountedRef<IMFSample> sample;
    ASSERT_EQ(MFCreateSample(sample.put()), S_OK);
    ASSERT_EQ(store->SetUnknown(kKey, sample.get()), S_OK);
  }
  EXPECT_EQ(control::liveObjectCount("IMFSample"), 1);
  CountedRef<IMFSample> back;
  EXPECT_EQ(store->GetUnknown(kKey, IID_IMFSample, back.putVoid()), S_OK);
  CountedRef<IMFMediaType> wrong;
  EXPECT_EQ(store->GetUnknown(kKey, IID_IMFMediaType, wrong.putVoid()), E_NOINTERFACE);
  back.reset();
  store->DeleteItem(kKey);
  EXPECT_EQ(control::liveObjectCount("IMFSample"), 0);
}

TEST_F(MfCoreTest, CopyAllItemsReplacesWhatTheDestinationHeld) {
  CountedRef<IMFMediaType> available = mediaType(MFVideoFormat_H264);
  available->SetUINT32(MF_MT_AVG_BITRATE, 4000000);
  const UINT8 blob[] = {9, 8};
  available->SetBlob(MF_MT_USER_DATA, blob, 2);
  CountedRef<IMFMediaType> copy;
  ASSERT_EQ(MFCreateMediaType(copy.put()), S_OK);
  copy->SetUINT32(kKey, 1);  // stale: CopyAllItems empties the destination first

  ASSERT_EQ(available->CopyAllItems(copy.get()), S_OK);
  UINT32 count = 0, bitrate = 0;
  copy->GetCount(&count);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(copy->GetUINT32(kKey, &bitrate), MF_E_ATTRIBUTENOTFOUND);
  EXPECT_EQ(copy->GetUINT32(MF_MT_AVG_BITRATE, &bitrate), S_OK);
  EXPECT_EQ(bitrate, 4000000u);
  BOOL match = FALSE;
  EXPECT_EQ(available->Compare(copy.get(), MF_ATTRIBUTES_MATCH_ALL_ITEMS, &match), S_OK);
  EXPECT_TRUE(match);

  // The copy is its own: changing it leaves the source as it was.
  copy->SetUINT32(MF_MT_AVG_BITRATE, 1);
  available->GetUINT32(MF_MT_AVG_BITRATE, &bitrate);
  EXPECT_EQ(bitrate, 4000000u);
  EXPECT_EQ(available->Compare(copy.get(), MF_ATTRIBUTES_MATCH_ALL_ITEMS, &match), S_OK);
  EXPECT_FALSE(match);
  copy->DeleteItem(MF_MT_AVG_BITRATE);
  copy->SetUINT32(kOtherKey, 3);
  EXPECT_EQ(available->Compare(copy.get(), MF_ATTRIBUTES_MATCH_INTERSECTION, &match), S_OK);
  EXPECT_TRUE(match);
  EXPECT_EQ(available->Compare(copy.get(), MF_ATTRIBUTES_MATCH_OUR_ITEMS, &match), S_OK);
  EXPECT_FALSE(match);
}

TEST_F(MfCoreTest, SizesAndRatiosPackTheFirstValueHigh) {
  CountedRef<IMFMediaType> type = mediaType(MFVideoFormat_NV12);
  ASSERT_EQ(MFSetAttributeSize(type.get(), MF_MT_FRAME_SIZE, 1920, 1080), S_OK);
  ASSERT_EQ(MFSetAttributeRatio(type.get(), MF_MT_FRAME_RATE, 60, 1), S_OK);
  UINT64 packed = 0;
  EXPECT_EQ(type->GetUINT64(MF_MT_FRAME_SIZE, &packed), S_OK);
  EXPECT_EQ(packed, (UINT64(1920) << 32) | 1080);
  EXPECT_EQ(type->GetUINT64(MF_MT_FRAME_RATE, &packed), S_OK);
  EXPECT_EQ(packed, (UINT64(60) << 32) | 1);

  UINT32 width = 0, height = 0;
  EXPECT_EQ(MFGetAttributeSize(type.get(), MF_MT_FRAME_SIZE, &width, &height), S_OK);
  EXPECT_EQ(width, 1920u);
  EXPECT_EQ(height, 1080u);
  type->SetUINT32(MF_MT_FRAME_SIZE, 5);
  width = height = 7;
  EXPECT_EQ(MFGetAttributeSize(type.get(), MF_MT_FRAME_SIZE, &width, &height), MF_E_INVALIDTYPE);
  EXPECT_EQ(width, 7u);
  EXPECT_EQ(MFGetAttributeUINT32(type.get(), MF_MT_AVG_BITRATE, 123), 123u);
}

TEST_F(MfCoreTest, MediaTypesCompareByMajorTypeSubtypeAndFormatData) {
  CountedRef<IMFMediaType> empty;
  ASSERT_EQ(MFCreateMediaType(empty.put()), S_OK);
  GUID major{};
  EXPECT_EQ(empty->GetMajorType(&major), MF_E_ATTRIBUTENOTFOUND);

  CountedRef<IMFMediaType> nv12 = mediaType(MFVideoFormat_NV12);
  EXPECT_EQ(nv12->GetMajorType(&major), S_OK);
  EXPECT_EQ(major, MFMediaType_Video);
  BOOL compressed = FALSE;
  EXPECT_EQ(nv12->IsCompressedFormat(&compressed), S_OK);
  EXPECT_TRUE(compressed) << "without MF_MT_ALL_SAMPLES_INDEPENDENT a type counts as compressed";
  nv12->SetUINT32(MF_MT_ALL_SAMPLES_INDEPENDENT, 1);
  EXPECT_EQ(nv12->IsCompressedFormat(&compressed), S_OK);
  EXPECT_FALSE(compressed);

  CountedRef<IMFMediaType> same = mediaType(MFVideoFormat_NV12);
  DWORD flags = 0;
  // One type's items being a subset of the other's is still equal format data.
  EXPECT_EQ(nv12->IsEqual(same.get(), &flags), S_OK);
  EXPECT_EQ(flags, DWORD(MF_MEDIATYPE_EQUAL_MAJOR_TYPES | MF_MEDIATYPE_EQUAL_FORMAT_TYPES |
                         MF_MEDIATYPE_EQUAL_FORMAT_DATA | MF_MEDIATYPE_EQUAL_FORMAT_USER_DATA));
  MFSetAttributeRatio(same.get(), MF_MT_FRAME_RATE_RANGE_MAX, 30, 1);  // left out of the comparison
  EXPECT_EQ(nv12->IsEqual(same.get(), &flags), S_OK);

  same->SetUINT32(MF_MT_ALL_SAMPLES_INDEPENDENT, 0);
  EXPECT_EQ(nv12->IsEqual(same.get(), &flags), S_FALSE);
  EXPECT_EQ(flags, DWORD(MF_MEDIATYPE_EQUAL_MAJOR_TYPES | MF_MEDIATYPE_EQUAL_FORMAT_TYPES |
                         MF_MEDIATYPE_EQUAL_FORMAT_USER_DATA));

  CountedRef<IMFMediaType> h264 = mediaType(MFVideoFormat_H264);
  EXPECT_EQ(nv12->IsEqual(h264.get(), &flags), S_FALSE);
  EXPECT_EQ(flags & MF_MEDIATYPE_EQUAL_FORMAT_TYPES, 0u);
  EXPECT_NE(flags & MF_MEDIATYPE_EQUAL_MAJOR_TYPES, 0u);
  EXPECT_EQ(nv12->IsEqual(empty.get(), &flags), E_INVALIDARG) << "both need a major type";
}

TEST_F(MfCoreTest, MemoryBuffersKeepTheirLengthsWithinTheirMaximum) {
  CountedRef<IMFMediaBuffer> buffer;
  ASSERT_EQ(MFCreateMemoryBuffer(16, buffer.put()), S_OK);
  DWORD max = 0, current = 99;
  EXPECT_EQ(buffer->GetMaxLength(&max), S_OK);
  EXPECT_EQ(max, 16u);
  EXPECT_EQ(buffer->GetCurrentLength(&current), S_OK);
  EXPECT_EQ(current, 0u);
  EXPECT_EQ(buffer->SetCurrentLength(16), S_OK);
  EXPECT_EQ(buffer->SetCurrentLength(17), E_INVALIDARG);
  buffer->GetCurrentLength(&current);
  EXPECT_EQ(current, 16u) << "a refused length leaves the old one";

  BYTE* data = nullptr;
  ASSERT_EQ(buffer->Lock(&data, &max, &current), S_OK);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(max, 16u);
  EXPECT_EQ(current, 16u);
  std::memset(data, 0xAB, 16);
  BYTE* again = nullptr;
  EXPECT_EQ(buffer->Lock(&again, nullptr, nullptr), S_OK) << "locks nest";
  EXPECT_EQ(again, data);
  EXPECT_EQ(buffer->Unlock(), S_OK);
  EXPECT_EQ(buffer->Unlock(), S_OK);
  EXPECT_EQ(buffer->Unlock(), MF_E_INVALIDREQUEST);
  EXPECT_EQ(validBytes(buffer.get()), std::vector<BYTE>(16, 0xAB));
}

TEST_F(MfCoreTest, SamplesCarryTimesAndBuffers) {
  CountedRef<IMFSample> sample;
  ASSERT_EQ(MFCreateSample(sample.put()), S_OK);
  LONGLONG time = 5;
  EXPECT_EQ(sample->GetSampleTime(&time), MF_E_NO_SAMPLE_TIMESTAMP);
  EXPECT_EQ(sample->GetSampleDuration(&time), MF_E_NO_SAMPLE_DURATION);
  EXPECT_EQ(sample->SetSampleTime(166666), S_OK);
  EXPECT_EQ(sample->SetSampleDuration(166666), S_OK);
  EXPECT_EQ(sample->GetSampleTime(&time), S_OK);
  EXPECT_EQ(time, 166666);
  EXPECT_EQ(sample->SetUINT32(kKey, 1), S_OK) << "a sample is an attribute store too";

  CountedRef<IMFMediaBuffer> empty;
  EXPECT_EQ(sample->ConvertToContiguousBuffer(empty.put()), E_UNEXPECTED);
  {
    CountedRef<IMFMediaBuffer> first = bufferWith({1, 2, 3}, 5);
    ASSERT_EQ(sample->AddBuffer(first.get()), S_OK);
    CountedRef<IMFMediaBuffer> only;
    ASSERT_EQ(sample->ConvertToContiguousBuffer(only.put()), S_OK);
    EXPECT_EQ(only.get(), first.get()) << "one buffer is already contiguous";
    sample->AddBuffer(bufferWith({4, 5}).get());
  }
  EXPECT_EQ(control::liveObjectCount("IMFMediaBuffer"), 2) << "the sample holds its buffers";
  DWORD count = 0, total = 0;
  EXPECT_EQ(sample->GetBufferCount(&count), S_OK);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(sample->GetTotalLength(&total), S_OK);
  EXPECT_EQ(total, 5u);
  CountedRef<IMFMediaBuffer> missing;
  EXPECT_EQ(sample->GetBufferByIndex(2, missing.put()), E_INVALIDARG);

  CountedRef<IMFMediaBuffer> small;
  ASSERT_EQ(MFCreateMemoryBuffer(4, small.put()), S_OK);
  EXPECT_EQ(sample->CopyToBuffer(small.get()), MF_E_BUFFERTOOSMALL);

  CountedRef<IMFMediaBuffer> joined;
  ASSERT_EQ(sample->ConvertToContiguousBuffer(joined.put()), S_OK);
  EXPECT_EQ(validBytes(joined.get()), (std::vector<BYTE>{1, 2, 3, 4, 5}));
  EXPECT_EQ(sample->GetBufferCount(&count), S_OK);
  EXPECT_EQ(count, 1u) << "the joined buffer replaces the parts";
  EXPECT_EQ(control::liveObjectCount("IMFMediaBuffer"), 2) << "the parts went; the joined one and `small` stay";
  EXPECT_EQ(sample->RemoveAllBuffers(), S_OK);
  EXPECT_EQ(sample->GetBufferCount(&count), S_OK);
  EXPECT_EQ(count, 0u);
}

TEST_F(MfCoreTest, SurfaceBufferReadsTheTexturesNv12AsOnePicture) {
  D3D d3d = makeDevice();
  ASSERT_TRUE(d3d.device);
  const UINT width = 6, height = 4;  // far below the row alignment, so that padding would show
  std::vector<BYTE> planes(width * height * 3 / 2);
  for (size_t i = 0; i < planes.size(); ++i) planes[i] = BYTE(i * 7 + 1);
  D3D11_SUBRESOURCE_DATA data{planes.data(), width, 0};
  D3D11_TEXTURE2D_DESC desc = textureDesc(width, height, DXGI_FORMAT_NV12);
  CountedRef<ID3D11Texture2D> filled, texture;
  ASSERT_EQ(d3d.device->CreateTexture2D(&desc, &data, filled.put()), S_OK);
  ASSERT_EQ(d3d.device->CreateTexture2D(&desc, nullptr, texture.put()), S_OK);
  d3d.context->CopyResource(texture.get(), filled.get());

  CountedRef<IMFMediaBuffer> buffer;
  ASSERT_EQ(MFCreateDXGISurfaceBuffer(IID_ID3D11Texture2D, texture.get(), 0, FALSE, buffer.put()), S_OK);
  CountedRef<IMFDXGIBuffer> dxgi;
  ASSERT_EQ(dxgi.queryFrom(buffer.get()), S_OK);
  CountedRef<ID3D11Texture2D> resource;
  EXPECT_EQ(dxgi->GetResource(IID_ID3D11Texture2D, resource.putVoid()), S_OK);
  EXPECT_EQ(resource.get(), texture.get());
  UINT subresource = 9;
  EXPECT_EQ(dxgi->GetSubresourceIndex(&subresource), S_OK);
  EXPECT_EQ(subresource, 0u);
  CountedRef<IMF2DBuffer> twoD;
  EXPECT_EQ(twoD.queryFrom(buffer.get()), E_NOINTERFACE);

  // The buffer holds the texture: the application's references may go first.
  resource.reset();
  texture.reset();
  BYTE* bytes = nullptr;
  DWORD max = 0, current = 99;
  ASSERT_EQ(buffer->Lock(&bytes, &max, &current), S_OK);
  EXPECT_EQ(max, DWORD(planes.size()));
  EXPECT_EQ(current, 0u) << "nobody has set the valid length yet";
  EXPECT_EQ(std::vector<BYTE>(bytes, bytes + max), planes);
  bytes[width * height + 1] = 0xEE;  // Cr of the first chroma pair
  ASSERT_EQ(buffer->Unlock(), S_OK);

  // The last Unlock carried the change back to the texture.
  ASSERT_EQ(dxgi->GetResource(IID_ID3D11Texture2D, resource.putVoid()), S_OK);
  CountedRef<ID3D11Texture2D> readback =
      makeTexture(d3d.device.get(), stagingDesc(width, height, DXGI_FORMAT_NV12, D3D11_CPU_ACCESS_READ));
  d3d.context->CopyResource(readback.get(), resource.get());
  D3D11_MAPPED_SUBRESOURCE mapped{};
  ASSERT_EQ(d3d.context->Map(readback.get(), 0, D3D11_MAP_READ, 0, &mapped), S_OK);
  const BYTE* chroma = static_cast<const BYTE*>(mapped.pData) + size_t(mapped.RowPitch) * height;
  EXPECT_EQ(chroma[1], 0xEE);
  EXPECT_EQ(chroma[mapped.RowPitch], planes[width * height + width]);
  d3d.context->Unmap(readback.get(), 0);

  CountedRef<IMFMediaBuffer> refused;
  control::failOnce("MFCreateDXGISurfaceBuffer", E_OUTOFMEMORY);
  EXPECT_EQ(MFCreateDXGISurfaceBuffer(IID_ID3D11Texture2D, filled.get(), 0, FALSE, refused.put()), E_OUTOFMEMORY);
  EXPECT_EQ(MFCreateDXGISurfaceBuffer(IID_IUnknown, filled.get(), 0, FALSE, refused.put()), E_INVALIDARG);
  EXPECT_EQ(MFCreateDXGISurfaceBuffer(IID_ID3D11Texture2D, filled.get(), 1, FALSE, refused.put()), E_INVALIDARG);
  EXPECT_FALSE(refused);
}

TEST_F(MfCoreTest, ASampleCarriesASurfaceBufferAsItIs) {
  D3D d3d = makeDevice();
  ASSERT_TRUE(d3d.device);
  CountedRef<ID3D11Texture2D> texture = makeTexture(d3d.device.get(), textureDesc(16, 16, DXGI_FORMAT_NV12));
  CountedRef<IMFSample> sample;
  ASSERT_EQ(MFCreateSample(sample.put()), S_OK);
  {
    CountedRef<IMFMediaBuffer> buffer;
    ASSERT_EQ(MFCreateDXGISurfaceBuffer(IID_ID3D11Texture2D, texture.get(), 0, FALSE, buffer.put()), S_OK);
    ASSERT_EQ(sample->AddBuffer(buffer.get()), S_OK);
  }
  CountedRef<IMFMediaBuffer> contiguous;
  ASSERT_EQ(sample->ConvertToContiguousBuffer(contiguous.put()), S_OK);
  CountedRef<IMFDXGIBuffer> dxgi;
  EXPECT_EQ(dxgi.queryFrom(contiguous.get()), S_OK);
  CountedRef<IMFDXGIBuffer> none;
  CountedRef<IMFMediaBuffer> memory = bufferWith({1});
  EXPECT_EQ(none.queryFrom(memory.get()), E_NOINTERFACE);
}

TEST_F(MfCoreTest, StartupsAreCountedAndShutdownWithoutOneIsHarmless) {
  EXPECT_EQ(MFShutdown(), S_OK);
  EXPECT_EQ(control::mfStartupCount(), startupsBefore);
  EXPECT_EQ(MFStartup(0x00010000, MFSTARTUP_FULL), MF_E_BAD_STARTUP_VERSION);
  EXPECT_EQ(control::mfStartupCount(), startupsBefore);
  ASSERT_EQ(MFStartup(MF_VERSION, MFSTARTUP_FULL), S_OK);
  ASSERT_EQ(MFStartup(MF_VERSION, MFSTARTUP_LITE), S_OK);
  EXPECT_EQ(control::mfStartupCount(), startupsBefore + 2);
  EXPECT_EQ(MFShutdown(), S_OK);
  EXPECT_EQ(MFShutdown(), S_OK);
  EXPECT_EQ(control::mfStartupCount(), startupsBefore);
}

TEST_F(MfCoreTest, PlannedFaultsReachTheCaller) {
  control::failOnce("MFStartup", E_OUTOFMEMORY);
  EXPECT_EQ(MFStartup(MF_VERSION, MFSTARTUP_FULL), E_OUTOFMEMORY);
  EXPECT_EQ(control::mfStartupCount(), startupsBefore) << "a failed startup needs no shutdown";

  control::failOnce("MFCreateMediaType", E_OUTOFMEMORY);
  CountedRef<IMFMediaType> type;
  EXPECT_EQ(MFCreateMediaType(type.put()), E_OUTOFMEMORY);
  EXPECT_FALSE(type);
  type = mediaType(MFVideoFormat_H264);

  control::failOnce("IMFAttributes::SetUINT32", E_FAIL);
  EXPECT_EQ(type->SetUINT32(MF_MT_AVG_BITRATE, 1), E_FAIL);
  UINT32 value = 0;
  EXPECT_EQ(type->GetUINT32(MF_MT_AVG_BITRATE, &value), MF_E_ATTRIBUTENOTFOUND);
  EXPECT_EQ(control::callCount("IMFAttributes::SetUINT32"), 1u);

  CountedRef<IMFSample> sample;
  ASSERT_EQ(MFCreateSample(sample.put()), S_OK);
  control::failOnce("IMFSample::AddBuffer", E_OUTOFMEMORY);
  {
    CountedRef<IMFMediaBuffer> buffer = bufferWith({1, 2});
    EXPECT_EQ(sample->AddBuffer(buffer.get()), E_OUTOFMEMORY);
  }
  EXPECT_EQ(control::liveObjectCount("IMFMediaBuffer"), 0) << "a refused buffer isn't held";

  control::failOnce("QueryInterface(IMFSample)", E_NOINTERFACE);
  CountedRef<IMFSample> again;
  EXPECT_EQ(again.queryFrom(sample.get()), E_NOINTERFACE);
  EXPECT_EQ(again.queryFrom(sample.get()), S_OK);
}

TEST_F(MfCoreTest, ALockedStoreWaitsForItsUnlock) {
  CountedRef<IMFAttributes> store = attributes();
  EXPECT_EQ(store->UnlockStore(), E_UNEXPECTED) << "nothing to unlock";
  ASSERT_EQ(store->LockStore(), S_OK);
  EXPECT_EQ(store->SetUINT32(kKey, 1), S_OK) << "the locking thread goes on";
  std::atomic<bool> written{false};
  std::thread other([&] {
    store->SetUINT32(kKey, 2);
    written = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(written.load());
  EXPECT_EQ(store->UnlockStore(), S_OK);
  other.join();
  EXPECT_TRUE(written.load());
  UINT32 value = 0;
  store->GetUINT32(kKey, &value);
  EXPECT_EQ(value, 2u);
}

}  // namespace
