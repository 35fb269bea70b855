#include "ModelLibrary.hpp"

#include <algorithm>

namespace velto::model::test {
namespace {

/// A small library in the store: shelf "root" over "inner", which holds two books, and "other" with one; two
/// loans.
class ModelRollback : public ModelTest {
  protected:
    void SetUp() override {
        open();
        const auto top = addShelf("root");
        const auto middle = addShelf("inner");
        middle->edit().parent = top;
        const auto aside = addShelf("other");
        for (const auto& shelf : {middle, middle, aside}) {
            const auto book = make<Book>(shelf);
            book->edit().title = "title " + std::to_string(context().count<Book>());
            book->edit().tags = std::vector<std::string>{"tag"};
            book->edit().dust = Cover::hard;
        }
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

    /// All values, relationships, inverses and identities, in the order of the context and of its lists.
    std::string contents() {
        std::string text;
        const auto add = [&](const auto& object, const std::string& value) {
            text += std::to_string(object->persistentId().row()) + ' ' + value;
        };
        for (const auto& shelf : context().fetch<Shelf>()) {
            add(shelf, shelf->name + ' ' + std::to_string(shelf->counter));
            if (shelf->parent) add(shelf->parent, " parent");
            for (const auto& child : shelf->children)
                add(child, child->parent == shelf ? " child" : " wrong");
            for (const auto& book : shelf->books)
                add(book, book->shelf == shelf ? " book" : " wrong");
            text += '\n';
        }
        for (const auto& book : context().fetch<Book>()) {
            add(book, book->id.text() + book->title.value_or("-") + book->tags.value_or(noTags).front());
            text += book->pages ? "pages" : "";
            text += book->dust ? rawValue(*book->dust) : "-";
            for (const auto& loan : book->loans)
                add(loan, loan->book == book ? " loan" : " wrong");
            text += '\n';
        }
        for (const auto& loan : context().fetch<Loan>())
            add(loan, loan->reader + (loan->book ? loan->book->id.text() : "-") + '\n');
        return text;
    }

    /// Each handle means a live object that the context finds by each of its keys.
    void expectHandlesMeanTheirRows() {
        for (const auto& shelf : {root, inner, other}) {
            EXPECT_EQ(context().find<Shelf>(shelf->persistentId()), shelf);
            EXPECT_EQ(context().findUnique<Shelf>("name", shelf->name), shelf);
            EXPECT_EQ(shelf->context(), &context());
        }
        EXPECT_EQ(context().count<Book>(), books.size());
        for (const auto& book : books) {
            EXPECT_EQ(context().find<Book>(book->persistentId()), book);
            EXPECT_EQ(context().findUnique<Book>("id", book->id), book);
            EXPECT_FALSE(book->isDeleted() || book->hasChanges());
        }
    }

    const std::vector<std::string> noTags{"-"};
    std::vector<Ref<Book>> books;
    std::vector<Ref<Loan>> loans;
    Ref<Shelf> root, inner, other;
    std::vector<Ref<Object>> fresh; ///< what a change inserted
};

TEST_F(ModelRollback, EveryKindOfChangeIsTakenBack) {
    const struct {
        std::string name;
        std::function<void()> change;
    } cases[] = {
        {"nothing", [] {}},
        {"insertions",
         [&] {
             const auto shelf = addShelf("fresh");
             const auto book = make<Book>(inner);
             fresh = {shelf, book, make<Loan>("eve", books[0]), make<Book>(shelf)};
             context().remove(make<Book>(inner));
         }},
        {"edits",
         [&] {
             auto& fields = books[0]->edit();
             fields.id = Uuid::random();
             fields.title = std::nullopt;
             fields.tags = std::nullopt;
             fields.dust = std::nullopt;
             fields.pages = 3;
             root->edit().counter = 7;
         }},
        {"removal with all that it takes along", [&] { context().remove(root); }},
        {"removal of a list's first member, then of its list",
         [&] {
             context().remove(books[0]);
             context().remove(inner);
         }},
        {"moves",
         [&] {
             books[0]->edit().shelf = other;
             books[1]->edit().shelf = nullptr;
             loans[1]->edit().book = books[0];
             other->edit().parent = inner;
             inner->edit().parent = nullptr;
         }},
        {"moves to a new object, away from a removed one",
         [&] {
             const auto shelf = addShelf("fresh");
             fresh = {shelf};
             for (const auto& book : inner->books.all())
                 book->edit().shelf = shelf;
             shelf->edit().parent = root;
             other->edit().parent = shelf;
             context().remove(inner);
         }},
        {"unique values swapped",
         [&] {
             root->edit().name = "inner";
             inner->edit().name = "root";
             EXPECT_EQ(context().findUnique<Shelf>("name", "root"), inner);
             std::swap(books[0]->edit().id, books[1]->edit().id);
         }},
        {"a removed one's unique value taken",
         [&] {
             root->edit().counter = 1;
             root->edit().name = "changed before its removal";
             context().remove(root);
             fresh = {addShelf("root")};
         }},
        {"a removal after an edit, before the first look-up by a unique value",
         [&] {
             books[0]->edit().title = "edited";
             context().remove(books[0]);
             EXPECT_EQ(context().findUnique<Book>("id", books[0]->id), nullptr);
         }},
        {"everything removed",
         [&] {
             for (const auto& shelf : context().fetch<Shelf>())
                 context().remove(shelf);
             for (const auto& loan : loans)
                 context().remove(loan);
         }},
    };

    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        for (const char* table : {"Shelf", "Book", "Loan"})
            for (const char* step : {"INSERT", "UPDATE", "DELETE"})
                sql(std::string("CREATE TRIGGER ") + step + table + " BEFORE " + step + " ON " + table +
                    " BEGIN SELECT RAISE(ABORT, 'obstacle'); END");
        const std::string before = contents();
        each.change();
        if (context().hasChanges()) {
            EXPECT_ANY_THROW(context().save());
        }
        context().rollback();
        EXPECT_FALSE(context().hasChanges());
        EXPECT_EQ(contents(), before);
        expectHandlesMeanTheirRows();
        for (const auto& object : fresh) {
            EXPECT_TRUE(object->isDeleted() && object->context() == nullptr);
            if (const auto shelf = cast<Shelf>(object)) {
                EXPECT_TRUE(shelf->books.empty() && !shelf->name.empty());
            }
        }
        EXPECT_EQ(context().findUnique<Shelf>("name", "fresh"), nullptr);
        context().save(); // writes nothing, or a trigger would stop it
        for (const char* table : {"Shelf", "Book", "Loan"})
            for (const char* step : {"INSERT", "UPDATE", "DELETE"})
                sql(std::string("DROP TRIGGER ") + step + table);

        root->edit().counter += 1; // what was restored can be changed and saved like any other
        books[0]->edit().title = each.name;
        loans[0]->edit().book = books[1];
        root->edit().name = "renamed";
        EXPECT_EQ(context().findUnique<Shelf>("name", "renamed"), root);
        root->edit().name = "root";
        books[0]->edit().id = Uuid::random();
        EXPECT_EQ(context().findUnique<Book>("id", books[0]->id), books[0]);
        context().save();
        loans[0]->edit().book = books[0];
        context().save();
        const std::string saved = contents();
        fresh.clear();
        reopen();
        EXPECT_EQ(contents(), saved);
        EXPECT_EQ(sql("PRAGMA foreign_key_check"), "");
        takeHandles();
    }
}

TEST_F(ModelRollback, WhereTheStoreCannotBeReadAllStaysPending) {
    sql("UPDATE Book SET id = 'broken' WHERE title = 'title 2'");
    fresh = {addShelf("fresh")};
    books[0]->edit().title = "new";
    books[2]->edit().shelf = root;
    context().remove(inner);
    const std::string wanted = contents();
    EXPECT_EQ(failureOf([&] { context().rollback(); }), StoreError::Case::damaged);
    EXPECT_EQ(contents(), wanted);
    EXPECT_TRUE(inner->isDeleted() && !fresh[0]->isDeleted());
    context().save();
    reopen();
    EXPECT_EQ(contents(), wanted);
}

TEST_F(ModelRollback, ObserversHearWhatBecameOfEachObject) {
    ChangeSet heard;
    const auto subscription = context().observe([&](const ChangeSet& changes) { heard = changes; });
    const auto names = [](const std::vector<Ref<Object>>& objects) {
        std::string text;
        for (const auto& object : objects)
            if (const auto shelf = cast<Shelf>(object)) text += shelf->name + ' ';
        return text;
    };
    for (const bool isDeliveredBetween : {false, true}) {
        SCOPED_TRACE(isDeliveredBetween);
        root->edit().counter = 1;
        addShelf("fresh");
        other->edit().counter = 1;
        context().remove(other);
        context().remove(inner);
        if (isDeliveredBetween) context().deliverChanges();
        context().rollback();
        context().deliverChanges();
        EXPECT_EQ(names(heard.deleted), "fresh ");
        EXPECT_EQ(names(heard.inserted), isDeliveredBetween ? "other inner " : "");
        EXPECT_EQ(names(heard.updated), isDeliveredBetween ? "root " : "root other inner ");
        heard = {};
        context().remove(other);
        context().rollback();
        other->edit().counter = 0;
        context().remove(other);
        context().deliverChanges();
        EXPECT_EQ(names(heard.deleted), "other ") << "once";
        context().rollback();
        context().deliverChanges();
        other->edit().counter = 2;
        context().deliverChanges();
        EXPECT_EQ(names(heard.updated), "other ") << "it is still listened to";
        context().rollback();
        context().deliverChanges();
    }
}

} // namespace
} // namespace velto::model::test
