// A datagram of an application, whole and cut.
#include "daemons/procmgrd/app_notice.h"

#include "fuzz/fuzz_input.h"

using namespace Procmgrd;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view datagram(reinterpret_cast<const char*>(data), size);
    for (const bool isWhole : {true, false}) {
        const AppNotice notice = ReadAppNotice(datagram, isWhole);
        Fuzz::Require(!notice.appState || *notice.appState <= 1);
        for (const char c : notice.status.value_or("")) {
            const auto byte = static_cast<unsigned char>(c);
            Fuzz::Require(byte >= 0x20 && byte != 0x7f);
        }
        const bool saysSomething = notice.appState || notice.status || notice.isBeat || notice.isBarrier;
        Fuzz::Require(notice.isUnderstood || !saysSomething);
    }
    return 0;
}
