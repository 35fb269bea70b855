#pragma once

#include "platform/model/ModelContainer.hpp"
#include "support/TemporaryFolder.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>

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
    void open() { container = ModelContainer::create(librarySchema(), {storePath()}); }

    void reopen() {
        container.reset();
        open();
    }

    [[nodiscard]] std::filesystem::path storePath() const { return folder / "library.store"; }

    [[nodiscard]] ModelContext& context() { return container->mainContext(); }

    Ref<Shelf> addShelf(const std::string& name) {
        auto shelf = make<Shelf>(name);
        context().insert(shelf);
        return shelf;
    }

    /// Runs SQL on a connection of its own, as any other program could; the first column of the first row.
    std::string sql(const std::string& text) const {
        sqlite3* connection = nullptr;
        EXPECT_EQ(sqlite3_open(storePath().c_str(), &connection), SQLITE_OK);
        sqlite3_busy_timeout(connection, 5000);
        std::string result;
        const auto keep = [](void* target, int, char** values, char**) {
            auto& kept = *static_cast<std::string*>(target);
            if (kept.empty() && values[0] != nullptr) kept = values[0];
            return 0;
        };
        char* error = nullptr;
        EXPECT_EQ(sqlite3_exec(connection, text.c_str(), keep, &result, &error), SQLITE_OK) << error;
        sqlite3_free(error);
        sqlite3_close(connection);
        return result;
    }

    velto::test::TemporaryFolder folder;
    std::unique_ptr<ModelContainer> container;
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
