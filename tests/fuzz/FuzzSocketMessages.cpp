// libFuzzer target: what each side decodes from the other: socket frames and API replies in the application,
// acknowledgements and request bodies in the service. Each decoder must refuse bad input with "nothing",
// never crash, hang or read out of bounds.
#include "ApiRecords.h"
#include "SocketMessages.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view json(reinterpret_cast<const char*>(data), size);
    if (const auto message = keyferry::ServerMessage::decode(json); message && message->id) {
        // An acknowledgement of whatever id came in is encoded without failing on any input.
        static_cast<void>(keyferry::SocketReply::ack(*message->id).encode());
    }
    static_cast<void>(keyferry::PairingResponse::decode(json));
    static_cast<void>(keyferry::PairStatusResponse::decode(json));
    static_cast<void>(keyferry::PairedPhonesResponse::decode(json));
    static_cast<void>(keyferry::RemovePhoneResponse::decode(json));
    static_cast<void>(keyferry::SocketReply::decode(json));
    static_cast<void>(keyferry::PairStartRequest::decode(json));
    static_cast<void>(keyferry::RemovePhoneRequest::decode(json));
    return 0;
}
