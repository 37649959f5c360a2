#include "ApiRecords.h"

#include "JsonReader.h"
#include "JsonWriter.h"

namespace keyferry {

namespace {

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

std::optional<PairStartRequest> PairStartRequest::decode(std::string_view json) {
    return JsonReader::decodeObject<PairStartRequest>(json, [](JsonReader& reader) {
        return PairStartRequest{.name = reader.requiredString("name"), .platform = reader.requiredString("platform")};
    });
}

nlohmann::json PairStartRequest::toJson() const {
    return {{"name", name}, {"platform", platform}};
}

std::optional<RemovePhoneRequest> RemovePhoneRequest::decode(std::string_view json) {
    return JsonReader::decodeObject<RemovePhoneRequest>(
        json, [](JsonReader& reader) { return RemovePhoneRequest{.pairingId = reader.requiredString("pairingId")}; });
}

nlohmann::json RemovePhoneRequest::toJson() const {
    return {{"pairingId", pairingId}};
}

std::optional<PairingResponse> PairingResponse::decode(std::string_view json) {
    return JsonReader::decodeObject<PairingResponse>(json, [](JsonReader& reader) {
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

nlohmann::json PairingResponse::toJson() const {
    nlohmann::json object{
        {"computerId", computerId}, {"pairCode", pairCode}, {"expiresAt", expiresAt}, {"status", status}};
    JsonWriter::setIfPresent(object, "computerToken", computerToken);
    JsonWriter::setIfPresent(object, "platform", platform);
    return object;
}

std::optional<PairStatusResponse> PairStatusResponse::decode(std::string_view json) {
    return JsonReader::decodeObject<PairStatusResponse>(json, [](JsonReader& reader) {
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

nlohmann::json PairStatusResponse::toJson() const {
    nlohmann::json object{
        {"computerId", computerId}, {"name", name}, {"status", status}, {"paired", paired}, {"expiresAt", expiresAt}};
    JsonWriter::setIfPresent(object, "pairedDeviceCount", pairedDeviceCount);
    JsonWriter::setIfPresent(object, "pairingPending", pairingPending);
    JsonWriter::setIfPresent(object, "pairingExpired", pairingExpired);
    return object;
}

nlohmann::json PairedPhone::toJson() const {
    return {{"id", id},
            {"name", name},
            {"platform", platform},
            {"appVersion", appVersion},
            {"createdAt", createdAt},
            {"lastSeenAt", lastSeenAt}};
}

std::optional<PairedPhonesResponse> PairedPhonesResponse::decode(std::string_view json) {
    return JsonReader::decodeObject<PairedPhonesResponse>(json, [](JsonReader& reader) {
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

nlohmann::json PairedPhonesResponse::toJson() const {
    nlohmann::json list = nlohmann::json::array();
    for (const PairedPhone& phone : phones) {
        list.push_back(phone.toJson());
    }
    return {{"phones", std::move(list)}};
}

std::optional<RemovePhoneResponse> RemovePhoneResponse::decode(std::string_view json) {
    return JsonReader::decodeObject<RemovePhoneResponse>(
        json, [](JsonReader& reader) { return RemovePhoneResponse{.removed = reader.requiredBoolean("removed")}; });
}

nlohmann::json RemovePhoneResponse::toJson() const {
    return {{"removed", removed}};
}

} // namespace keyferry
