#include "ApiRecords.h"

#include "JsonReader.h"

namespace keyferry {

namespace {

// Reads a record from a reply: nothing unless the reply is one JSON object whose members all fit.
template <typename Record, typename ReadMembers>
std::optional<Record> decodeObject(std::string_view json, ReadMembers readMembers) {
    const auto object = JsonReader::parseObject(json);
    if (!object) {
        return std::nullopt;
    }
    JsonReader reader(*object);
    Record record = readMembers(reader);
    if (!reader.ok()) {
        return std::nullopt;
    }
    return record;
}

PairedPhone readPhone(JsonReader& reader) {
    return PairedPhone{
        .id = reader.requiredString("id"),
        .name = reader.requiredString("name"),
        .platform = reader.requiredString("platform"),
        .appVersion = reader.requiredString("appVersion"),
        .createdAt = reader.requiredInteger("createdAt"),
        .lastSeenAt = reader.requiredInteger("lastSeenAt"),
    };
}

} // namespace

std::optional<PairingResponse> PairingResponse::decode(std::string_view json) {
    return decodeObject<PairingResponse>(json, [](JsonReader& reader) {
        return PairingResponse{
            .computerId = reader.requiredString("computerId"),
            .computerToken = reader.optionalString("computerToken"),
            .pairCode = reader.requiredString("pairCode"),
            .expiresAt = reader.requiredInteger("expiresAt"),
            .status = reader.requiredString("status"),
            .platform = reader.optionalString("platform"),
        };
    });
}

std::optional<PairStatusResponse> PairStatusResponse::decode(std::string_view json) {
    return decodeObject<PairStatusResponse>(json, [](JsonReader& reader) {
        return PairStatusResponse{
            .computerId = reader.requiredString("computerId"),
            .name = reader.requiredString("name"),
            .status = reader.requiredString("status"),
            .paired = reader.requiredBoolean("paired"),
            .expiresAt = reader.requiredInteger("expiresAt"),
            .pairedDeviceCount = reader.optionalInteger("pairedDeviceCount"),
            .pairingPending = reader.optionalBoolean("pairingPending"),
            .pairingExpired = reader.optionalBoolean("pairingExpired"),
        };
    });
}

std::optional<PairedPhonesResponse> PairedPhonesResponse::decode(std::string_view json) {
    return decodeObject<PairedPhonesResponse>(json, [](JsonReader& reader) {
        PairedPhonesResponse response;
        const auto* phoneArray = reader.requiredArray("phones");
        if (phoneArray == nullptr) {
            return response;
        }
        response.phones.reserve(phoneArray->size());
        for (const auto& element : *phoneArray) {
            JsonReader phoneReader(element);
            response.phones.push_back(readPhone(phoneReader));
            if (!phoneReader.ok()) {
                reader.fail(); // one bad phone fails the whole list
                break;
            }
        }
        return response;
    });
}

std::optional<RemovePhoneResponse> RemovePhoneResponse::decode(std::string_view json) {
    return decodeObject<RemovePhoneResponse>(
        json, [](JsonReader& reader) { return RemovePhoneResponse{.removed = reader.requiredBoolean("removed")}; });
}

} // namespace keyferry
