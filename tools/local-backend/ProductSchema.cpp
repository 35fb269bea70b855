#include "Schema.hpp"

namespace velto::local {

namespace {

// The names and kinds are the product's protocol. In TrackTaggingInput artist and title are optional here
// although tagging needs both: a track without them is answered by an entry in `errors`, not by a refusal.
constexpr std::string_view text = R"graphql(
type Query { me: User! creditBalance: Int! preferencesDefaults: PreferencesDefaults! }
type User { id: ID! email: String! name: String genres: [String!] regions: [String!] }
type PreferencesDefaults { genres: [String!]! regions: [String!]! eras: [String!]! }

type Mutation {
  tagTracks(input: TagTracksInput!): TagTracksResult!
  syncLibrary(input: SyncLibraryInput!): SyncLibraryResult!
  syncTracks(input: SyncTracksInput!): SyncTracksResult!
  removeTracksFromLibrary(input: RemoveTracksInput!): RemoveTracksResult!
  deleteLibrary(input: DeleteLibraryInput!): DeleteLibraryResult!
  sendInvite(input: SendInviteInput!): SendInviteResult!
}

input TagTracksInput { tracks: [TrackTaggingInput!]! }
input TrackTaggingInput { id: ID! artist: String title: String album: String }
type TagTracksResult {
  success: Boolean! message: String tracksTagged: Int! creditsConsumed: Int!
  results: [TrackTags!]! errors: [TaggingError!]! shouldRetry: Boolean retryAfter: Int
}
type TrackTags { id: ID! artist: String! title: String! genres: [String!]! regions: [String!]! era: String }
type TaggingError { type: String! message: String! batchNumber: Int }

input SyncLibraryInput { name: String! }
type SyncLibraryResult { success: Boolean! library: SyncedLibrary }
type SyncedLibrary { id: ID! name: String! lastSyncedAt: String }

input SyncTracksInput { libraryName: String! tracks: [TrackSyncInput!]! }
input TrackSyncInput {
  canonicalSig: String! artist: String album: String title: String duration: Float!
  genreTags: [String!]! regionTags: [String!]! eraTag: String filename: String! ctime: String lastTagged: String
}
type SyncTracksResult {
  success: Boolean! message: String syncedCount: Int! failedCount: Int! errors: [TrackSyncError!]!
}
type TrackSyncError { canonicalSig: String! message: String! }

input RemoveTracksInput { libraryName: String! canonicalSigs: [String!]! }
type RemoveTracksResult { success: Boolean! removedCount: Int! }
input DeleteLibraryInput { libraryName: String! }
type DeleteLibraryResult { success: Boolean! message: String deletedTracksCount: Int! }

input SendInviteInput { email: String! }
type SendInviteResult { success: Boolean! message: String! invite: Invite }
type Invite {
  id: ID! code: String! inviteeEmail: String! credits: Int! inviterId: ID inviteeId: ID status: String
  createdAt: String expiresAt: String inviter: InviteUser
}
type InviteUser { id: ID! name: String email: String! }
)graphql";

} // namespace

const Schema& Schema::product() {
    static const Schema schema(text);
    return schema;
}

} // namespace velto::local
