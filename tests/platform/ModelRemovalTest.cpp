#include "ModelLibrary.hpp"

namespace velto::model::test {
namespace {

using Objects = std::vector<Ref<Object>>;

/// A small library in the store: shelf "root" over "inner", which holds two books, and "other" with one; two
/// loans.
class ModelRemoval : public ModelTest {
  protected:
    void SetUp() override {
        ModelTest::SetUp();
        fill();
    }

    void fill() {
        root = addShelf("root");
        inner = addShelf("inner");
        inner->edit().parent = root;
        other = addShelf("other");
        for (const auto& shelf : {inner, inner, other})
            make<Book>(shelf)->edit().title = "title " + std::to_string(context().count<Book>());
        books = context().fetch<Book>();
        loans = {make<Loan>("ann", books.front()), make<Loan>("bob", books.back())};
        context().save();
    }

    std::vector<Ref<Book>> books;
    std::vector<Ref<Loan>> loans;
    Ref<Shelf> root, inner, other;
};

TEST_F(ModelRemoval, TakesAlongWhatTheRulesSayOrNothingIfItCannotBeWritten) {
    const struct {
        const char* name;
        std::function<void()> change; ///< pending when the removal begins
        std::function<Objects()> removed;
        std::size_t shelves, books, loans; ///< that are left
    } cases[] = {
        {"an owner", [] {}, [&] { return Objects{root}; }, 1, 1, 2},
        {"owners after and before what they own", [] {},
         [&] {
             return Objects{inner, root, books[0], loans[0]};
         },
         1, 1, 1},
        {"everything", [] {},
         [&] {
             return Objects{loans[0], loans[1], other, root};
         },
         0, 0, 0},
        {"with edits of what goes and of what stays",
         [&] {
             books[0]->edit().title = "edited";
             root->edit().counter = 3;
             other->edit().counter = 4;
             loans[0]->edit().reader = "eve";
         },
         [&] { return Objects{root}; }, 1, 1, 2},
        {"with others moved into it and out of it",
         [&] {
             books[0]->edit().shelf = other;
             other->edit().counter = 1;
             books[2]->edit().shelf = inner;
             loans[0]->edit().book = books[1];
         },
         [&] { return Objects{root}; }, 1, 1, 2},
        {"with new ones in it, one of them removed again",
         [&] {
             make<Loan>("new", make<Book>(inner));
             context().remove(make<Book>(root));
             const auto shelf = addShelf("new");
             shelf->edit().parent = inner;
             loans[1]->edit().book = make<Book>(shelf);
         },
         [&] { return Objects{root}; }, 1, 1, 3},
        {"with a removal that is pending", [&] { context().remove(inner); },
         [&] {
             return Objects{root, inner};
         },
         1, 1, 2},
    };

    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        each.change();
        auto removed = each.removed();
        const std::string before = contents();
        {
            const velto::test::Obstacle obstacle(storePath(), "DELETE ON Shelf");
            startRemoval(removed);
            finish();
        }
        EXPECT_TRUE(failure);
        EXPECT_EQ(contents(), before);
        startRemoval(removed);
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
        startAnew();
        fill();
    }
}

/// Each change comes when the removal is being written, then once more with a plain save after it, and once
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
            Objects objects{root};
            if (when == "early") // several turns to look through
                for (int i = 0; i < 2'000; ++i)
                    make<Book>(inner);
            startRemoval(objects);
            asio::post(runtime.main(), [&] { each.change(); });
            if (when == "late, and saved") asio::post(runtime.main(), [&] { context().save(); });
            finish();
            EXPECT_FALSE(failure) << describe(failure);
            EXPECT_EQ(sql("SELECT count(*) FROM Book WHERE shelf IS NULL"), "0")
                << "what goes with its owner";
            expectStored();
            EXPECT_EQ(context().count<Shelf>(), each.shelves);
            EXPECT_EQ(context().count<Book>(), each.books);
            EXPECT_EQ(context().count<Loan>(), each.loans);
            startAnew();
            fill();
        }
}

} // namespace
} // namespace velto::model::test
