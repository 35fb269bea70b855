#pragma once

#include "platform/model/InBackground.hpp"
#include "platform/model/ModelContainer.hpp"
#include "support/Sql.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/TestRuntime.hpp"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

/// A small schema that has every kind of attribute and relationship, and a store of it.
namespace velto::model::test {

enum class Cover { hard, soft };

constexpr auto allCases(Cover) {
    return std::array{Cover::hard, Cover::soft};
}

constexpr std::string_view rawValue(Cover cover) {
    return cover == Cover::hard ? "hard" : "soft";
}

class Shelf;
class Book;
class Loan;

struct ShelfFields {
    std::string name;
    std::int64_t counter = 0;
    ToOne<Shelf> parent;
    ToMany<Shelf> children;
    ToMany<Book> books;
};

class Shelf final : public Entity<Shelf, ShelfFields> {
  public:
    explicit Shelf(Loading) {}

    explicit Shelf(std::string itsName) { edit().name = std::move(itsName); }

    static EntityDescription describe();
};

struct BookFields {
    Uuid id;
    std::optional<std::string> title;
    std::optional<std::int64_t> pages;
    std::optional<double> price;
    std::optional<bool> isRead;
    std::optional<Date> bought;
    std::optional<std::vector<std::string>> tags;
    std::optional<Cover> dust;
    Cover cover = Cover::soft;
    ToOne<Shelf> shelf;
    ToMany<Loan> loans;
};

class Book final : public Entity<Book, BookFields> {
  public:
    explicit Book(Loading) {}

    explicit Book(const Ref<Shelf>& itsShelf) {
        edit().id = Uuid::random();
        edit().shelf = itsShelf;
    }

    static EntityDescription describe();
};

struct LoanFields {
    std::string reader;
    ToOne<Book> book;
};

class Loan final : public Entity<Loan, LoanFields> {
  public:
    explicit Loan(Loading) {}

    explicit Loan(std::string itsReader, const Ref<Book>& itsBook) {
        edit().reader = std::move(itsReader);
        edit().book = itsBook;
    }

    static EntityDescription describe();
};

inline EntityDescription Shelf::describe() {
    return EntityBuilder<Shelf>("Shelf")
        .uniqueAttribute<&ShelfFields::name>("name")
        .attribute<&ShelfFields::counter>("counter")
        .toOne<&ShelfFields::parent, &ShelfFields::children>("parent")
        .toMany<&ShelfFields::children, &ShelfFields::parent>("children", DeleteRule::cascade)
        .toMany<&ShelfFields::books, &BookFields::shelf>("books", DeleteRule::cascade)
        .build();
}

inline EntityDescription Book::describe() {
    return EntityBuilder<Book>("Book")
        .uniqueAttribute<&BookFields::id>("id")
        .attribute<&BookFields::title>("title")
        .attribute<&BookFields::pages>("pages")
        .attribute<&BookFields::price>("price")
        .attribute<&BookFields::isRead>("isRead")
        .attribute<&BookFields::bought>("bought")
        .attribute<&BookFields::tags>("tags")
        .attribute<&BookFields::dust>("dust")
        .attribute<&BookFields::cover>("cover")
        .toOne<&BookFields::shelf, &ShelfFields::books>("shelf")
        .toMany<&BookFields::loans, &LoanFields::book>("loans", DeleteRule::nullify)
        .build();
}

inline EntityDescription Loan::describe() {
    return EntityBuilder<Loan>("Loan")
        .attribute<&LoanFields::reader>("reader")
        .toOne<&LoanFields::book, &BookFields::loans>("book")
        .build();
}

/// Books before what they refer to: a save must not depend on the order.
inline Schema librarySchema() {
    return Schema::of<Loan, Book, Shelf>({1, 0, 0});
}

class ModelTest : public ::testing::Test {
  protected:
    void SetUp() override { open(); }

    void open() { container = ModelContainer::create(librarySchema(), {storePath()}); }

    void reopen() {
        container.reset();
        open();
    }

    /// An empty store in the place of this one.
    void startAnew() {
        container.reset();
        std::filesystem::remove(storePath());
        open();
    }

    [[nodiscard]] std::filesystem::path storePath() const { return folder / "library.store"; }

    [[nodiscard]] ModelContext& context() { return container->mainContext(); }

    Ref<Shelf> addShelf(const std::string& name) {
        auto shelf = make<Shelf>(name);
        context().insert(shelf);
        return shelf;
    }

    std::string sql(const std::string& text) const { return velto::test::sql(storePath(), text); }

    SaveOutcome save(bool inBackground) {
        return inBackground ? runtime.run(saveInBackground(context(), runtime.executors()))
                            : context().save();
    }

    void startSave() {
        asio::co_spawn(runtime.main(), saveInBackground(context(), runtime.executors()),
                       [this](const std::exception_ptr& error, SaveOutcome saved) {
                           failure = error;
                           outcomes.push_back(std::move(saved));
                       });
    }

    void start(Task<void> task) {
        asio::co_spawn(runtime.main(), std::move(task), [this](const std::exception_ptr& error) {
            failure = error;
            outcomes.emplace_back();
        });
    }

    void startRemoval(std::vector<Ref<Object>> objects) {
        start(removeInBackground(context(), runtime.executors(), std::move(objects)));
    }

    /// Waits until so many that were started have ended.
    void finish(std::size_t count = 1) {
        runtime.runUntil([&] { return outcomes.size() >= count; });
        EXPECT_EQ(outcomes.size(), count);
        ended = std::exchange(outcomes, {});
    }

    /// All that tests change, with both ends of each relationship.
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
            text += book->title.value_or("-") + ' ' + std::to_string(book->pages.value_or(-1));
            for (const auto& loan : book->loans)
                text += loan->book == book ? " loan" : " wrong";
            text += '\n';
        }
        for (const auto& loan : context().fetch<Loan>())
            text += loan->reader + ' ' + (loan->book ? loan->book->title.value_or("-") : "nothing") + '\n';
        return text;
    }

    /// What the context holds is what the store holds, and a further save finds nothing wrong.
    void expectStored() {
        const std::string expected = contents();
        context().save();
        EXPECT_EQ(contents(), expected);
        EXPECT_EQ(sql("PRAGMA foreign_key_check"), "");
        reopen();
        EXPECT_EQ(contents(), expected);
    }

    velto::test::TemporaryFolder folder;
    std::unique_ptr<ModelContainer> container;
    velto::test::TestRuntime runtime;
    std::exception_ptr failure; ///< of what ended last
    std::vector<SaveOutcome> outcomes;
    std::vector<SaveOutcome> ended; ///< what finish() waited for
};

template <typename F>
StoreError::Case failureOf(F action) {
    try {
        action();
    } catch (const StoreError& error) {
        EXPECT_NE(error.errorDescription().find("library.store"), std::string::npos)
            << error.errorDescription();
        return error.errorCase();
    }
    ADD_FAILURE() << "nothing was thrown";
    return StoreError::Case::failed;
}

} // namespace velto::model::test
