#include "id3/ID3Types.hpp"

namespace velto::id3 {

namespace {

const char* text(ID3TagEditorError::Case kind) {
    switch (kind) {
    case ID3TagEditorError::Case::invalidFileFormat:
        return "Not an MP3 file";
    case ID3TagEditorError::Case::tagTooBig:
        return "The tag is too big";
    case ID3TagEditorError::Case::invalidTagData:
        return "Invalid tag data";
    case ID3TagEditorError::Case::corruptedFile:
        return "The tag declares more bytes than the file has";
    }
    return "";
}

} // namespace

ID3TagEditorError::ID3TagEditorError(Case kind)
    : Error(text(kind))
    , kind_(kind) {}

} // namespace velto::id3
