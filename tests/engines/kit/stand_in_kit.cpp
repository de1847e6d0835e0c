// A stand-in Helix client kit for the engine tests: every operation exists
// and does nothing. Built twice: complete, and with
// STAND_IN_KIT_WITHOUT_IS_LIVE lacking the isLive operation.
#include <belvane/HXClientKitABI.h>

struct HXClientPlayerInstance {};
struct HXClientViewInstance {};

namespace {
using P = HXClientPlayerRef;
using Observer = const HXClientObserver*;
}  // namespace

extern "C" __attribute__((visibility("default"))) const HXClientPlayerClass HXClientPlayer = {
    HX_CLIENT_KIT_ABI_VERSION, sizeof(HXClientPlayerClass),
    [](P p) { delete p; },
    [](HXClientViewRef, Observer) -> P { return new HXClientPlayerInstance; },
    [](P, const char*, const char*) { return false; },
    [](P) -> int32_t { return HXContentStateNotLoaded; },
    [](P) {}, [](P) {}, [](P) {},
    [](P) { return true; }, [](P) {},
    [](P, uint32_t) {}, [](P) -> uint32_t { return 0; },
    [](P) -> uint16_t { return 100; }, [](P, uint16_t) {},
    [](P) { return false; }, [](P, bool) {},
    [](P) -> uint32_t { return 0; },
#ifdef STAND_IN_KIT_WITHOUT_IS_LIVE
    nullptr,
#else
    [](P) { return true; },
#endif
    [](P, const char*) -> char* { return nullptr; },
    [](P, Observer, const char*, void*) {}, [](P, Observer, const char*, void*) {},
    nullptr,  // setAudioOutput: an older kit's table ends before it
};

extern "C" __attribute__((visibility("default"))) const HXClientViewClass HXClientView = {
    HX_CLIENT_KIT_ABI_VERSION, sizeof(HXClientViewClass), true,
    [](HXClientViewRef v) { delete v; },
    [](double, double, double, double) -> HXClientViewRef { return new HXClientViewInstance; },
};
