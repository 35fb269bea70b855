#include "ModelLibrary.hpp"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>

namespace velto::model::test {
namespace {

class ModelSave : public ModelTest {
  protected:
    void SetUp() override { open(); }
};

TEST_F(ModelSave, EveryKindOfValueReadsBackEqual) {
    using namespace std::string_literals;
    const auto shelf = addShelf("Ünïcødé | \"quoted\" 'name'");
    const auto full = make<Book>(shelf);
    auto& fields = full->edit();
    fields.title = "nul\0 and broken \xFF\xC3"s;
    fields.pages = std::numeric_limits<std::int64_t>::min();
    fields.price = 0.1;
    fields.isRead = false;
    fields.bought = dateFromMicroseconds(-1'234'567'890'123);
    fields.tags = std::vector<std::string>{"Hip-Hop", "", "R&B/Soul", "\"é\n"};
    fields.dust = Cover::hard;
    fields.cover = Cover::hard;
    const auto empty = make<Book>(nullptr);
    context().insert(empty);
    empty->edit().title = "";
    empty->edit().tags = std::vector<std::string>{};
    const auto fullId = full->persistentId();
    const auto emptyId = empty->persistentId();
    context().save();
    EXPECT_FALSE(context().hasChanges());

    reopen();
    const auto read = context().find<Book>(fullId);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->id, full->id);
    EXPECT_EQ(read->title, full->title);
    EXPECT_EQ(read->pages, full->pages);
    EXPECT_EQ(read->price, full->price);
    EXPECT_EQ(read->isRead, full->isRead);
    EXPECT_EQ(read->bought, full->bought);
    EXPECT_EQ(read->tags, full->tags);
    EXPECT_EQ(read->dust, full->dust);
    EXPECT_EQ(read->cover, full->cover);
    EXPECT_EQ(read->shelf->name, shelf->name);
    const auto bare = context().find<Book>(emptyId);
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->title, "") << "an empty text is not an absent one";
    EXPECT_EQ(bare->tags, std::vector<std::string>{});
    EXPECT_FALSE(bare->pages || bare->price || bare->isRead || bare->bought || bare->dust);
    EXPECT_EQ(bare->shelf, nullptr);
}

/// What is in the context, in one text, for comparisons.
std::string contents(ModelContext& context) {
    std::string text;
    for (const auto& shelf : context.fetch<Shelf>()) {
        text += shelf->name + ':' + std::to_string(shelf->counter) + '(';
        for (const auto& book : shelf->books)
            text += book->title.value_or("-") + ',';
        text += ") ";
    }
    for (const auto& loan : context.fetch<Loan>())
        text += loan->reader + (loan->book ? "+ " : "- ");
    return text;
}

TEST_F(ModelSave, AFailedSaveKeepsEverythingPendingAndALaterOneSucceeds) {
    auto shelf = addShelf("shelf");
    const auto kept = make<Book>(shelf);
    kept->edit().title = "kept";
    const auto doomed = make<Book>(shelf);
    doomed->edit().title = "doomed";
    make<Loan>("ann", doomed);
    make<Loan>("gone", kept);
    context().save();

    for (const char* step : {"BEFORE INSERT ON Book", "BEFORE UPDATE ON Shelf", "BEFORE DELETE ON Loan"}) {
        SCOPED_TRACE(step);
        const std::string before = sql("SELECT group_concat(title) FROM Book");
        sql(std::string("CREATE TRIGGER obstacle ") + step + " BEGIN SELECT RAISE(ABORT, 'obstacle'); END");
        const auto fresh = make<Book>(shelf);
        fresh->edit().title = "fresh";
        shelf->edit().counter += 1;
        context().remove(
            context().fetch<Book>([](const Book& book) { return book.title != "fresh"; }).back());
        context().remove(context().fetch<Loan>().back());
        make<Loan>("again", fresh);
        const std::string wanted = contents(context());
        EXPECT_EQ(failureOf([&] { context().save(); }), StoreError::Case::failed);
        EXPECT_EQ(contents(context()), wanted);
        EXPECT_TRUE(context().hasChanges());
        EXPECT_EQ(sql("SELECT group_concat(title) FROM Book"), before) << "half a save reached the file";
        sql("DROP TRIGGER obstacle");
        context().save();
        reopen();
        EXPECT_EQ(contents(context()), wanted);
        shelf = context().findUnique<Shelf>("name", "shelf");
        make<Book>(shelf)->edit().title = "spare";
        context().save();
    }
}

TEST_F(ModelSave, AFullDiskIsSaidAndNothingIsLost) {
    const auto shelf = addShelf("shelf");
    context().save();
    for (int i = 0; i < 2000; ++i)
        make<Book>(shelf)->edit().title = std::string(1000, 'x');
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit small = old;
    small.rlim_cur = 300'000;
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_EQ(failureOf([&] { context().save(); }), StoreError::Case::diskFull);
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(shelf->books.size(), 2000U);
    context().save();
    reopen();
    EXPECT_EQ(context().count<Book>(), 2000U);
    EXPECT_EQ(sql("PRAGMA integrity_check"), "ok");
}

TEST_F(ModelSave, ASecondObjectOfAUniqueValueIsRefusedAndARenamedOneMakesRoom) {
    const auto first = addShelf("name");
    context().save();
    first->edit().name = "other";
    const auto second = addShelf("name");
    context().save();
    first->edit().name = "name";
    EXPECT_EQ(failureOf([&] { context().save(); }), StoreError::Case::duplicateValue);
    context().remove(second);
    context().save();
    reopen();
    EXPECT_EQ(contents(context()), "name:0() ");
}

/// Saves without end: each transaction adds a shelf of five books and counts it on the first shelf. Writes
/// one byte to `done` behind each save.
[[noreturn]] void saveForEver(const std::filesystem::path& store, int done) {
    const auto container = ModelContainer::create(librarySchema(), {store});
    auto& context = container->mainContext();
    auto ledger = context.findUnique<Shelf>("name", "ledger");
    if (!ledger) ledger = make<Shelf>("ledger");
    context.insert(ledger);
    for (;;) {
        const auto shelf = make<Shelf>("shelf " + std::to_string(++ledger->edit().counter));
        context.insert(shelf);
        for (int i = 0; i < 5; ++i)
            make<Book>(shelf)->edit().title = std::string(200, 'x');
        if (ledger->counter % 3 == 0)
            context.remove(context.findUnique<Shelf>("name", "ledger")->children[0]);
        else
            shelf->edit().parent = ledger;
        context.save();
        if (::write(done, "x", 1) != 1) _exit(1);
    }
}

TEST_F(ModelSave, AProcessKilledInTheMiddleLeavesAWholeStore) {
    container.reset();
    std::minstd_rand random(20240601);
    std::int64_t confirmed = 0;
    for (int round = 0; round < 10; ++round) {
        std::array<int, 2> channel{};
        ASSERT_EQ(::pipe(channel.data()), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            try {
                saveForEver(storePath(), channel[1]);
            } catch (...) {
                _exit(2);
            }
        }
        ::close(channel[1]);
        char byte = 0;
        for (std::uint_fast32_t i = 0, saves = 1 + random() % 20; i < saves; ++i) {
            ASSERT_EQ(::read(channel[0], &byte, 1), 1) << "the child failed";
            ++confirmed;
        }
        for (volatile std::uint_fast32_t spin = random() % 2'000'000; spin > 0;)
            spin = spin - 1; // somewhere inside the next
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        while (::read(channel[0], &byte, 1) == 1)
            ++confirmed;
        ::close(channel[0]);

        open();
        const auto ledger = context().findUnique<Shelf>("name", "ledger");
        ASSERT_TRUE(ledger);
        EXPECT_GE(ledger->counter, confirmed) << "a save that had returned is gone";
        EXPECT_LE(ledger->counter, confirmed + 1);
        confirmed = ledger->counter;
        std::int64_t last = 0;
        for (const auto& shelf : context().fetch<Shelf>()) {
            if (shelf == ledger) continue;
            EXPECT_EQ(shelf->books.size(), 5U) << shelf->name;
            last = std::max(last, std::int64_t{std::stoll(shelf->name.substr(6))});
        }
        EXPECT_EQ(last, ledger->counter);
        EXPECT_EQ(sql("PRAGMA integrity_check"), "ok");
        EXPECT_EQ(sql("PRAGMA foreign_key_check"), "");
        container.reset();
    }
}

} // namespace
} // namespace velto::model::test
