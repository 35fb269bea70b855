#include "ModelLibrary.hpp"

#include "platform/model/InBackground.hpp"
#include "support/TestRuntime.hpp"

namespace velto::model::test {
namespace {

/// A small library in the store: shelf "root" over "inner", which holds two books, and "other" with one; two
/// loans.
class ModelRemoval : public ModelTest {
  protected:
    void SetUp() override {
        open();
        const auto top = addShelf("root");
        const auto middle = addShelf("inner");
        middle->edit().parent = top;
        const auto aside = addShelf("other");
        for (const auto& shelf : {middle, middle, aside})
            make<Book>(shelf)->edit().title = "title " + std::to_string(context().count<Book>());
        make<Loan>("ann", context().fetch<Book>().front());
        make<Loan>("bob", context().fetch<Book>().back());
        context().save();
        takeHandles();
    }

    void takeHandles() {
        books = context().fetch<Book>();
        loans = context().fetch<Loan>();
        root = context().findUnique<Shelf>("name", "root");
        inner = context().findUnique<Shelf>("name", "inner");
        other = context().findUnique<Shelf>("name", "other");
    }

    /// All values that tests change, relationships and their inverses.
    std::string contents() {
        std::string text;
        for (const auto& shelf : context().fetch<Shelf>()) {
            text += shelf->name + ' ' + std::to_string(shelf->counter);
            text += shelf->parent ? " in " + shelf->parent->name : "";
            for (const auto& child : shelf->children)
                text += child->parent == shelf ? " child" : " wrong";
            for (const auto& book : shelf->books)
                text += book->shelf == shelf ? " book" : " wrong";
            text += '\n';
        }
        for (const auto& book : context().fetch<Book>()) {
            text += book->title.value_or("-");
            for (const auto& loan : book->loans)
                text += loan->book == book ? " loan" : " wrong";
            text += '\n';
        }
        for (const auto& loan : context().fetch<Loan>())
            text += loan->reader + ' ' + (loan->book ? loan->book->title.value_or("-") : "nothing") + '\n';
        return text;
    }

    void start(std::vector<Ref<Object>> objects) {
        asio::co_spawn(runtime.main(), removeInBackground(context(), runtime.executors(), std::move(objects)),
                       [this](const std::exception_ptr& error) { failure = error, hasEnded = true; });
    }

    void finish() {
        runtime.runUntil([this] { return hasEnded; });
        hasEnded = false;
    }

    /// What the context holds is what the store holds, and a further save finds nothing wrong.
    void expectStored() {
        const std::string expected = contents();
        context().save();
        EXPECT_EQ(contents(), expected);
        EXPECT_EQ(sql("PRAGMA foreign_key_check"), "");
        reopen();
        EXPECT_EQ(contents(), expected);
        takeHandles();
    }

    void block(bool isBlocked) {
        for (const std::string table : {"Shelf", "Book", "Loan"})
            sql(isBlocked ? "CREATE TRIGGER no" + table + " BEFORE DELETE ON " + table +
                                " BEGIN SELECT RAISE(ABORT, 'obstacle'); END"
                          : "DROP TRIGGER no" + table);
    }

    velto::test::TestRuntime runtime;
    std::exception_ptr failure;
    bool hasEnded = false;
    std::vector<Ref<Book>> books;
    std::vector<Ref<Loan>> loans;
    Ref<Shelf> root, inner, other;
};

TEST_F(ModelRemoval, TakesAlongWhatTheRulesSayOrNothingWhereItCannotBeWritten) {
    const struct {
        const char* name;
        std::function<void()> change; ///< pending when the removal begins
        std::function<std::vector<Ref<Object>>()> removed;
        std::size_t shelves, books, loans; ///< that are left
    } cases[] = {
        {"an owner", [] {}, [&] { return std::vector<Ref<Object>>{root}; }, 1, 1, 2},
        {"owners behind and before what they own", [] {},
         [&] {
             return std::vector<Ref<Object>>{inner, root, books[0], loans[0]};
         },
         1, 1, 1},
        {"everything", [] {},
         [&] {
             return std::vector<Ref<Object>>{loans[0], loans[1], other, root};
         },
         0, 0, 0},
        {"with edits of what goes and of what stays",
         [&] {
             books[0]->edit().title = "edited";
             root->edit().counter = 3;
             other->edit().counter = 4;
             loans[0]->edit().reader = "eve";
         },
         [&] { return std::vector<Ref<Object>>{root}; }, 1, 1, 2},
        {"with others moved into it and out of it",
         [&] {
             books[0]->edit().shelf = other;
             other->edit().counter = 1;
             books[2]->edit().shelf = inner;
             loans[0]->edit().book = books[1];
         },
         [&] { return std::vector<Ref<Object>>{root}; }, 1, 1, 2},
        {"with new ones in it, one of them removed again",
         [&] {
             make<Loan>("new", make<Book>(inner));
             context().remove(make<Book>(root));
             const auto shelf = addShelf("new");
             shelf->edit().parent = inner;
             loans[1]->edit().book = make<Book>(shelf);
         },
         [&] { return std::vector<Ref<Object>>{root}; }, 1, 1, 3},
        {"with a removal that is pending", [&] { context().remove(inner); },
         [&] {
             return std::vector<Ref<Object>>{root, inner};
         },
         1, 1, 2},
    };

    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        each.change();
        auto removed = each.removed();
        const std::string before = contents();
        block(true);
        start(removed);
        finish();
        EXPECT_EQ(contents(), before);
        block(false);
        EXPECT_TRUE(failure);
        start(removed);
        finish();
        EXPECT_FALSE(failure) << describe(failure);
        for (const auto& object : removed)
            EXPECT_TRUE(object->isDeleted() && object->context() == nullptr);
        EXPECT_EQ(context().count<Shelf>(), each.shelves);
        EXPECT_EQ(context().count<Book>(), each.books);
        EXPECT_EQ(context().count<Loan>(), each.loans);
        EXPECT_EQ(sql("SELECT count(*) FROM Book"), std::to_string(each.books));
        expectStored();
        removed.clear();
        container.reset();
        std::filesystem::remove(storePath());
        SetUp();
    }
}

TEST_F(ModelRemoval, AFailureLeavesWhatIsPendingForTheNextSave) {
    books[0]->edit().title = "edited";
    books[1]->edit().shelf = other;
    const auto fresh = make<Book>(other);
    block(true);
    start({root});
    runtime.runUntil([&] { return !fresh->hasChanges(); }); // on its way
    books[2]->edit().title = "meanwhile";
    loans[0]->edit().book = fresh;
    finish();
    EXPECT_TRUE(failure);
    EXPECT_FALSE(root->isDeleted());
    block(false);
    expectStored();
    EXPECT_EQ(books[0]->title, "edited");
    EXPECT_EQ(books[2]->title, "meanwhile");
    EXPECT_EQ(other->books.size(), 3U);
    EXPECT_EQ(loans[0]->book, books[3]);
}

/// Each change comes when the removal is being written, then once more with a plain save behind it, and once
/// while the removal still looks for what it takes along.
TEST_F(ModelRemoval, WhatHappensMeanwhileIsNeitherLostNorLeftWithoutItsOwner) {
    const struct {
        const char* name;
        std::function<void()> change;
        std::size_t shelves, books, loans; ///< that are left
    } cases[] = {
        {"an edit", [&] { books[0]->edit().title = "edited"; }, 1, 1, 2},
        {"a new member", [&] { make<Book>(inner); }, 1, 1, 2},
        {"one that stays moves in", [&] { books[2]->edit().shelf = inner; }, 1, 0, 2},
        {"a shelf with all it holds moves in", [&] { other->edit().parent = inner; }, 0, 0, 2},
        {"a link to what goes", [&] { loans[1]->edit().book = books[0]; }, 1, 1, 2},
        {"a new link to what goes", [&] { make<Loan>("new", books[1]); }, 1, 1, 3},
        {"somebody else removes a part", [&] { context().remove(inner); }, 1, 1, 2},
        {"somebody else removes all of it", [&] { context().remove(root); }, 1, 1, 2},
        {"something new that has nothing to do with it", [&] { make<Book>(other); }, 1, 2, 2},
    };

    for (const auto& each : cases)
        for (const std::string when : {"early", "late", "late, and saved"}) {
            SCOPED_TRACE(each.name + (" " + when));
            std::vector<Ref<Object>> objects{root};
            if (when == "early") // several turns to look through
                for (int i = 0; i < 2'000; ++i)
                    make<Book>(inner);
            start(objects);
            asio::post(runtime.main(), [&] { each.change(); });
            if (when == "late, and saved") asio::post(runtime.main(), [&] { context().save(); });
            finish();
            EXPECT_FALSE(failure) << describe(failure);
            expectStored();
            EXPECT_EQ(context().count<Shelf>(), each.shelves);
            EXPECT_EQ(context().count<Book>(), each.books);
            EXPECT_EQ(context().count<Loan>(), each.loans);
            container.reset();
            std::filesystem::remove(storePath());
            SetUp();
        }
}

TEST_F(ModelRemoval, ObserversHearOfItOnlyWhenItIsWritten) {
    std::size_t deleted = 0;
    const auto subscription =
        context().observe([&](const ChangeSet& changes) { deleted += changes.deleted.size(); });
    for (const bool isBlocked : {true, false}) {
        if (isBlocked) block(true);
        start({root});
        finish();
        context().deliverChanges();
        EXPECT_EQ(deleted, isBlocked ? 0U : 4U);
        if (isBlocked) block(false);
    }
}

} // namespace
} // namespace velto::model::test
