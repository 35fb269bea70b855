#include "media/Export.hpp"

#include "media/AiffExport.hpp"
#include "media/FileReader.hpp"
#include "media/Mp4Atoms.hpp"
#include "media/QuickTimeItems.hpp"
#include "media/TagItems.hpp"
#include "platform/files/CopyContent.hpp"
#include "platform/files/Descriptor.hpp"

#include <fcntl.h>
#include <mp4file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <map>
#include <system_error>
#include <vector>

namespace velto::media {

namespace {

using Drop = std::function<bool(const MetadataItem&)>;

[[noreturn]] void failWriting(const std::filesystem::path& path, int errorNumber) {
    throw MediaError(MediaError::Case::cannotWrite, path, std::generic_category().message(errorNumber));
}

files::Descriptor create(const std::filesystem::path& output) {
    ::unlink(output.c_str());
    files::Descriptor created(
        ::open(output.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!created) failWriting(output, errno);
    return created;
}

TagLib::String asTagLibString(const std::string& text) {
    return {text, TagLib::String::UTF8};
}

/// A value's bytes, or what sets large ones apart. TagLib writes numbers in the width that is usual, so the
/// zeros around them do not count; the type does only if an entry may have any.
std::string comparable(std::string_view payload, std::uint32_t type, bool hasAnyType) {
    constexpr std::uint32_t utf8Text = 1;
    if (type != utf8Text && payload.size() <= sizeof(std::uint64_t)) {
        const auto first = payload.find_first_not_of('\0');
        if (first == std::string_view::npos)
            payload = {};
        else
            payload = payload.substr(first, payload.find_last_not_of('\0') - first + 1);
    }
    const std::string mark = hasAnyType ? std::to_string(type) + ':' : std::string();
    if (payload.size() <= 1024) return mark + std::string(payload);
    return mark + std::to_string(payload.size()) + '#' +
           std::to_string(std::hash<std::string_view>()(payload));
}

using Values = std::vector<std::string>;

/// The values of the entry's "data" atoms from `position` on.
Values valuesOf(FileReader& reader, std::uint64_t position, std::uint64_t end, bool hasAnyType) {
    constexpr std::uint64_t header = 16; // size, "data", type, locale
    Values values;
    while (position + header <= end) {
        const std::string front(reader.at(position, header));
        const std::uint64_t size = bigEndian32(front);
        if (front.size() < header || size < header || position + size > end) break;
        if (front.compare(4, 4, "data") == 0)
            values.push_back(
                comparable(reader.copy(position + header, static_cast<std::size_t>(size - header)),
                           bigEndian32(front, 8) & 0xFF'FFFF, hasAnyType));
        position += size;
    }
    return values;
}

/// The entries of the tag list by TagLib's names for them. An entry that occurs twice has one value more.
using Entries = std::map<std::string, Values>;

Entries listEntries(FileReader& reader, const AtomTree& tree) {
    Entries entries;
    for (const Atom& atom : tree.atoms) {
        if (atom.parent < 0 ||
            !tree.isAt(tree.atoms[static_cast<std::size_t>(atom.parent)], {"moov", "udta", "meta", "ilst"}))
            continue;
        std::string name = utf8(TagLib::String(std::string(reader.at(atom.offset + 4, 4))));
        if (name == "gnre") name = "©gen"; // read as its name
        std::uint64_t position = atom.content;
        const bool isFreeForm = name == "----";
        if (isFreeForm) {
            // "mean" and "name", each a size, its own name, a version and the text.
            for (int i = 0; i < 2; ++i) {
                const std::string header(reader.at(position, 8));
                const std::uint64_t size = bigEndian32(header);
                if (size < 12 || position + size > atom.end) break;
                name += ":" + reader.copy(position + 12,
                                          static_cast<std::size_t>(std::min<std::uint64_t>(size - 12, 1024)));
                position += size;
            }
        }
        const auto [known, isNew] = entries.try_emplace(name);
        if (!isNew) known->second.emplace_back("again");
        for (auto& value : valuesOf(reader, position, atom.end, isFreeForm))
            known->second.push_back(std::move(value));
    }
    return entries;
}

Entries checkedEntries(const std::filesystem::path& path) {
    FileReader reader(path);
    const AtomTree tree = atomsOf(reader);
    if (!tree.consistent || tree.find({"moov"}) < 0)
        reader.fail(MediaError::Case::damaged, "its atoms contradict each other");
    return listEntries(reader, tree);
}

void editMp4(const std::filesystem::path& output, const Drop& drop, const std::optional<MetadataItem>& add) {
    Entries expected = checkedEntries(output);
    {
        TagLib::MP4::File file(output.c_str(), false);
        if (!file.isValid() || file.tag() == nullptr) throw MediaError(MediaError::Case::damaged, output);
        const TagLib::MP4::ItemMap items = file.tag()->itemMap();
        for (const auto& [name, atom] : items) {
            if (!drop(itemOfAtom(name, atom))) continue;
            file.tag()->removeItem(name);
            expected.erase(utf8(name));
        }
        if (add) {
            file.tag()->setItem("\251gen",
                                TagLib::MP4::Item(TagLib::StringList(asTagLibString(*add->text()))));
            expected["©gen"] = {comparable(*add->text(), 1, false)};
        }
        if (!file.save()) throw MediaError(MediaError::Case::cannotWrite, output);
    }
    // TagLib drops entries that it does not understand, reads numbers of an unusual width as others, and does
    // not look at what its writes return.
    if (checkedEntries(output) != expected)
        throw MediaError(MediaError::Case::cannotWrite, output, "a tag of another kind would be lost");
}

/// Makes free space of what QuickTime's own entries say, in the copy.
void freeQuickTimeItems(FileReader& source, int output, const Drop& drop) {
    constexpr std::string_view name = "free";
    for (const QuickTimeItem& each : quickTimeItems(source, atomsOf(source)))
        if (drop(each.item) &&
            ::pwrite(output, name.data(), name.size(), static_cast<off_t>(each.nameOffset)) !=
                static_cast<ssize_t>(name.size()))
            failWriting(source.path(), errno);
}

enum class Container { mp4, aiff };

Container containerOf(FileReader& reader) {
    const std::string head(reader.at(0, 12));
    if (head.starts_with("FORM") && (head.ends_with("AIFF") || head.ends_with("AIFC")))
        return Container::aiff;
    if (atomsOf(reader).find({"moov"}) >= 0) return Container::mp4;
    reader.fail(MediaError::Case::unsupportedContainer, "only MP4 and AIFF files can be rewritten");
}

} // namespace

void exportPassthrough(const std::filesystem::path& source, const std::filesystem::path& output,
                       const Drop& drop, const std::optional<MetadataItem>& add) {
    FileReader reader(source);
    const Container container = containerOf(reader);
    if (add && add->text() == nullptr)
        throw MediaError(MediaError::Case::cannotWrite, output, "the value to add is no text");
    try {
        const files::Descriptor created = create(output);
        if (container == Container::aiff) {
            exportAiff(reader, created.get(), drop, add);
        } else {
            if (!files::copyContent(reader.descriptor(), created.get())) failWriting(output, errno);
            freeQuickTimeItems(reader, created.get(), drop);
            editMp4(output, drop, add);
        }
    } catch (const MediaError&) {
        ::unlink(output.c_str());
        throw;
    } catch (const std::exception& error) {
        ::unlink(output.c_str());
        throw MediaError(MediaError::Case::cannotWrite, output, error.what());
    }
}

} // namespace velto::media
