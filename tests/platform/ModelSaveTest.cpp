#include "ModelLibrary.hpp"

#include <sys/resource.h>

#include <csignal>

namespace velto::model::test {
namespace {

using ModelSave = ModelTest;

TEST_F(ModelSave, EveryKindOfValueReadsBackEqual) {
    using namespace std::string_literals;
    for (const bool inBackground : {false, true}) {
        SCOPED_TRACE(inBackground);
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
        save(inBackground);
        EXPECT_FALSE(context().hasChanges());

        reopen();
        const auto books = context().fetch<Book>();
        ASSERT_EQ(books.size(), 2U);
        const auto& read = books[0];
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
        const auto& bare = books[1];
        EXPECT_EQ(bare->title, "") << "an empty text is not an absent one";
        EXPECT_EQ(bare->tags, std::vector<std::string>{});
        EXPECT_FALSE(bare->pages || bare->price || bare->isRead || bare->bought || bare->dust);
        EXPECT_EQ(bare->shelf, nullptr);
        startAnew();
    }
}

TEST_F(ModelSave, AFailedSaveKeepsEverythingPendingAndALaterOneSucceeds) {
    auto shelf = addShelf("shelf");
    for (const char* title : {"kept", "doomed"})
        make<Loan>(title, make<Book>(shelf));
    context().save();
    for (const char* event : {"INSERT ON Book", "UPDATE ON Shelf", "DELETE ON Loan"})
        for (const bool inBackground : {false, true}) {
            SCOPED_TRACE(event + std::to_string(inBackground));
            std::string wanted;
            {
                const velto::test::Obstacle obstacle(storePath(), event);
                const std::string before = sql("SELECT group_concat(_id) FROM Book");
                const auto fresh = make<Book>(shelf);
                fresh->edit().title = "fresh";
                shelf->edit().counter += 1;
                context().remove(shelf->books.front());
                context().remove(context().fetch<Loan>().back());
                make<Loan>("again", fresh);
                wanted = contents();
                EXPECT_EQ(failureOf([&] { save(inBackground); }), StoreError::Case::failed);
                EXPECT_EQ(contents(), wanted);
                EXPECT_TRUE(context().hasChanges());
                EXPECT_EQ(sql("SELECT group_concat(_id) FROM Book"), before) << "half a save is in the file";
            }
            save(inBackground);
            expectStored();
            EXPECT_EQ(contents(), wanted);
            shelf = context().findUnique<Shelf>("name", "shelf");
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
    const rlimit small{300'000, old.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_EQ(failureOf([&] { context().save(); }), StoreError::Case::diskFull);
    setrlimit(RLIMIT_FSIZE, &old);
    expectStored();
    EXPECT_EQ(context().count<Book>(), 2000U);
}

TEST_F(ModelSave, AnObjectThatTheStoreRefusesIsTakenBackAndAllOthersAreWritten) {
    Ref<Shelf> shelf, other;
    Ref<Book> book;
    const struct {
        const char* name;
        std::function<Ref<Object>()> offend; ///< gives what is to be taken back
        bool isNew;
        StoreError::Case expected;
    } cases[] = {
        {"a second one of a unique value", [&] { return addShelf("shelf"); }, true,
         StoreError::Case::duplicateValue},
        {"one that stored ones were moved into, and new ones made in",
         [&] {
             const auto second = addShelf("shelf");
             book->edit().shelf = second;
             other->edit().parent = second;
             context().fetch<Loan>().front()->edit().book = make<Book>(second);
             const auto inner = addShelf("inner");
             inner->edit().parent = second;
             make<Book>(inner);
             return second;
         },
         true, StoreError::Case::duplicateValue},
        {"one that took a value of another",
         [&] {
             other->edit().name = "shelf";
             other->edit().counter = 5;
             return other;
         },
         false, StoreError::Case::duplicateValue},
        {"a new one that its table does not take",
         [&] {
             const auto made = make<Book>(shelf);
             made->edit().pages = 1'000;
             return made;
         },
         true, StoreError::Case::refusedValue},
        {"a changed one that its table does not take",
         [&] {
             book->edit().pages = 1'000;
             book->edit().title = std::nullopt;
             return book;
         },
         false, StoreError::Case::refusedValue},
    };
    for (const auto& each : cases)
        for (const bool inBackground : {false, true}) {
            SCOPED_TRACE(each.name + std::to_string(inBackground));
            shelf = addShelf("shelf");
            other = addShelf("other");
            book = make<Book>(shelf);
            book->edit().title = "stored";
            make<Loan>("ann", book);
            context().save();
            sql("ALTER TABLE Book ADD COLUMN extra INTEGER CHECK (pages < 1000)");
            shelf->edit().counter = 1;
            make<Loan>("bob", book);
            const std::string wanted = contents();
            const auto offender = each.offend();
            int tellings = 0;
            const auto subscription = offender->observe([&] { ++tellings; });
            const SaveOutcome outcome = save(inBackground);
            context().deliverChanges();
            EXPECT_EQ(tellings, 1);
            EXPECT_EQ(failureOf([&] { outcome.throwIfRefused(offender); }), each.expected);
            EXPECT_NO_THROW(outcome.throwIfRefused(shelf));
            EXPECT_EQ(offender->isDeleted(), each.isNew);
            EXPECT_EQ(context().findUnique<Shelf>("name", "shelf"), shelf);
            EXPECT_EQ(contents(), wanted);
            EXPECT_FALSE(context().hasChanges());
            EXPECT_TRUE(save(inBackground).refusals.empty());
            expectStored();
            EXPECT_EQ(contents(), wanted);
            startAnew();
        }
}

TEST_F(ModelSave, ARenamedObjectMakesRoomForItsName) {
    const auto shelf = addShelf("name");
    for (const bool inBackground : {false, true}) {
        context().save();
        shelf->edit().name += "r";
        addShelf(inBackground ? "namer" : "name");
        EXPECT_TRUE(save(inBackground).refusals.empty());
    }
}

TEST_F(ModelSave, WhatTheStoreHoldsAndDoesNotTakeAnyMoreIsAFailure) {
    const auto book = make<Book>(addShelf("shelf"));
    context().save();
    sql("CREATE TABLE guard (n INTEGER CHECK (n < 0)); "
        "CREATE TRIGGER refusal BEFORE UPDATE ON Book BEGIN INSERT INTO guard VALUES (1); END");
    for (const bool inBackground : {false, true}) {
        book->edit().pages = 1;
        EXPECT_EQ(failureOf([&] { save(inBackground); }), StoreError::Case::refusedValue);
        EXPECT_TRUE(context().hasChanges());
    }
    sql("DROP TRIGGER refusal");
    expectStored();
}

} // namespace
} // namespace velto::model::test
