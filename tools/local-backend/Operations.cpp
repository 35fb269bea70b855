#include "Operations.hpp"

#include "Tagging.hpp"
#include "Vocabulary.hpp"

#include <fmt/format.h>

#include <set>

namespace velto::local {

using nlohmann::json;

namespace {

// The product's longest document has some 400 bytes. Bounds what aliases and repetition can multiply.
constexpr std::size_t maximumDocumentBytes = 16 * 1024;
constexpr std::size_t maximumRootFields = 10;

struct Context {
    State& state;
    const Account& account;
    const std::optional<Fault>& fault;
};

std::optional<std::string> optionalText(const json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() || found->is_null() ? std::nullopt
                                                     : std::optional(found->get<std::string>());
}

json user(const Account& account) {
    return {{"id", account.publicId},
            {"email", account.email},
            {"name", account.name ? json(*account.name) : json()},
            {"genres", account.genres},
            {"regions", account.regions}};
}

json preferencesDefaults() {
    auto genres = json::array();
    for (const auto& family : genreFamilies())
        for (const auto genre : family.genres)
            genres.push_back(genre);
    return {{"genres", genres},
            {"regions", json(std::vector<std::string_view>(regions().begin(), regions().end()))},
            {"eras", json(std::vector<std::string_view>(eras().begin(), eras().end()))}};
}

json syncLibrary(const Context& context, const json& input) {
    const auto name = input.at("name").get<std::string>();
    if (name.empty()) return {{"success", false}, {"library", nullptr}};
    const auto library = context.state.syncLibrary(context.account.id, name);
    return {{"success", true},
            {"library",
             {{"id", library.id},
              {"name", library.name},
              {"lastSyncedAt", library.lastSyncedAt ? json(*library.lastSyncedAt) : json()}}}};
}

TrackRecord trackRecord(const json& track) {
    return {track.at("canonicalSig"),
            optionalText(track, "artist"),
            optionalText(track, "album"),
            optionalText(track, "title"),
            track.at("duration"),
            track.at("genreTags").dump(),
            track.at("regionTags").dump(),
            optionalText(track, "eraTag"),
            track.at("filename"),
            optionalText(track, "ctime"),
            optionalText(track, "lastTagged")};
}

json syncTracks(const Context& context, const json& input) {
    std::vector<TrackRecord> tracks;
    auto errors = json::array();
    for (const auto& track : input.at("tracks")) {
        if (track.at("canonicalSig").get_ref<const std::string&>().empty())
            errors.push_back({{"canonicalSig", ""},
                              {"message", fmt::format("The track \"{}\" has no signature",
                                                      track.at("filename").get<std::string>())}});
        else
            tracks.push_back(trackRecord(track));
    }
    const auto name = input.at("libraryName").get<std::string>();
    const auto synced = context.state.syncTracks(context.account.id, name, tracks);
    if (!synced)
        return {{"success", false},
                {"message", fmt::format("Library '{}' not found", name)},
                {"syncedCount", 0},
                {"failedCount", input.at("tracks").size()},
                {"errors", json::array()}};
    return {{"success", errors.empty()},
            {"message", errors.empty() ? "All tracks synced successfully" : "Some tracks failed to sync"},
            {"syncedCount", *synced},
            {"failedCount", errors.size()},
            {"errors", errors}};
}

json removeTracks(const Context& context, const json& input) {
    const auto removed =
        context.state.removeTracks(context.account.id, input.at("libraryName"),
                                   input.at("canonicalSigs").get<std::vector<std::string>>());
    return {{"success", removed.has_value()}, {"removedCount", removed.value_or(0)}};
}

json deleteLibrary(const Context& context, const json& input) {
    const auto name = input.at("libraryName").get<std::string>();
    const auto deleted = context.state.deleteLibrary(context.account.id, name);
    return {{"success", deleted.has_value()},
            {"message", deleted ? fmt::format("Library '{}' deleted", name)
                                : fmt::format("Library '{}' not found", name)},
            {"deletedTracksCount", deleted.value_or(0)}};
}

json sendInvite(const Context& context, const json& input) {
    const auto refusal = [](const std::string& message) {
        return json{{"success", false}, {"message", message}, {"invite", nullptr}};
    };
    const auto email = normalizedEmail(input.at("email").get<std::string>());
    if (!email) return refusal("Please enter a valid email address");
    if (email == context.account.email) return refusal("You cannot invite yourself");
    const auto invite = context.state.invite(context.account.id, *email);
    if (!invite) return refusal(fmt::format("{} already has an account", *email));
    return {{"success", true},
            {"message", fmt::format("Invite recorded with the code {}; this local backend sends no e-mail",
                                    invite->code)},
            {"invite",
             {{"id", invite->id},
              {"code", invite->code},
              {"inviteeEmail", invite->inviteeEmail},
              {"credits", invite->credits},
              {"inviterId", context.account.publicId},
              {"inviteeId", nullptr},
              {"status", invite->status},
              {"createdAt", invite->createdAt},
              {"expiresAt", invite->expiresAt},
              {"inviter", user(context.account)}}}};
}

json tagTracks(const Context& context, const json& input) {
    return tagBatch(context.state, context.account.id, input.at("tracks"), context.fault);
}

using Mutation = json (*)(const Context&, const json& input);

const std::map<std::string, Mutation>& mutations() {
    static const std::map<std::string, Mutation> all{
        {"tagTracks", tagTracks},         {"syncLibrary", syncLibrary},
        {"syncTracks", syncTracks},       {"removeTracksFromLibrary", removeTracks},
        {"deleteLibrary", deleteLibrary}, {"sendInvite", sendInvite},
    };
    return all;
}

/// What a fault of tagging says if it hits another operation.
void failByFault(const std::string& field, const std::optional<Fault>& fault) {
    if (!fault || field == "tagTracks") return;
    if (fault->kind == FaultKind::rateLimit) throw GraphQLError("Rate limit exceeded");
    if (fault->kind == FaultKind::insufficientCredits) throw GraphQLError("Insufficient credits");
    if (fault->kind == FaultKind::partial) throw GraphQLError("Only a part was done");
}

json resolve(const std::string& field, const Context& context, const json& arguments) {
    failByFault(field, context.fault);
    if (field == "me") return user(context.account);
    if (field == "creditBalance") return context.account.credits;
    if (field == "preferencesDefaults") return preferencesDefaults();
    return mutations().at(field)(context, arguments.at("input"));
}

OperationDefinition chooseOperation(std::vector<OperationDefinition> operations, const json& name) {
    if (!name.is_string()) {
        if (operations.size() > 1)
            throw GraphQLError("Must provide operation name if query contains multiple operations.");
        return std::move(operations.front());
    }
    for (auto& operation : operations)
        if (operation.name == name.get_ref<const std::string&>()) return std::move(operation);
    throw GraphQLError(fmt::format("Unknown operation named \"{}\".", name.get<std::string>()));
}

void checkRootFields(const std::vector<SelectedField>& selection) {
    if (selection.size() > maximumRootFields) throw GraphQLError("The document asks for too much at once.");
    std::set<std::string> seen;
    for (const auto& field : selection)
        if (!seen.insert(field.alias).second)
            throw GraphQLError(fmt::format("The field \"{}\" is selected twice.", field.alias));
}

} // namespace

Call prepareCall(const json& request) {
    const auto query = request.is_object() ? request.value("query", json()) : json();
    if (!query.is_string()) throw GraphQLError("Must provide query string.");
    const auto& document = query.get_ref<const std::string&>();
    if (document.size() > maximumDocumentBytes) throw GraphQLError("The document is too long.");
    const auto given = request.value("variables", json());
    if (!given.is_null() && !given.is_object()) throw GraphQLError("Variables must be an object.");

    Call call;
    call.operation = chooseOperation(parseDocument(document), request.value("operationName", json()));
    const auto& schema = Schema::product();
    schema.validate(call.operation.selection, call.operation.mutation ? "Mutation" : "Query");
    checkRootFields(call.operation.selection);
    call.variables = schema.variables(call.operation, given.is_null() ? json::object() : given);
    call.productName = "GetUserAndDefaults";
    if (call.operation.mutation) {
        call.productName = call.operation.selection.front().name;
        call.productName[0] = static_cast<char>(call.productName[0] - 'a' + 'A');
    }
    return call;
}

json runCall(const Call& call, State& state, const Account& account, const std::optional<Fault>& fault) {
    const auto& schema = Schema::product();
    const Context context{state, account, fault};
    const std::string root = call.operation.mutation ? "Mutation" : "Query";
    std::vector<json> arguments;
    auto room = Schema::roomForVariables;
    // All arguments are checked before the first change is made.
    for (const auto& field : call.operation.selection)
        arguments.push_back(field.name == "__typename" ? json()
                                                       : schema.arguments(field, root, call.variables, room));
    auto data = json::object();
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const auto& field = call.operation.selection[i];
        data[field.alias] = field.name == "__typename"
                                ? json(root)
                                : schema.project(resolve(field.name, context, arguments[i]), field, root);
    }
    return data;
}

json errorReply(const std::string& message) {
    return {{"errors", json::array({{{"message", message}}})}};
}

} // namespace velto::local
