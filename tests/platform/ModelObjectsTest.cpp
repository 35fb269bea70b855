#include "ModelLibrary.hpp"

#include <numeric>

#include <algorithm>
#include <set>

namespace velto::model::test {
namespace {

using ModelObjects = ModelTest;

std::vector<std::int64_t> pagesOf(const ToMany<Book>& books) {
    std::vector<std::int64_t> pages;
    for (const auto& book : books)
        pages.push_back(book->pages.value_or(-1));
    return pages;
}

TEST_F(ModelObjects, BothEndsOfARelationshipAgreeAfterEveryKindOfChange) {
    const auto left = addShelf("left");
    const auto right = addShelf("right");
    const auto book = make<Book>(left);
    EXPECT_EQ(book->context(), &context()) << "relating a new object inserts it";
    EXPECT_EQ(left->books.size(), 1U);

    left->edit().books.append(book);
    EXPECT_EQ(left->books.size(), 1U) << "a member is not added twice";
    right->edit().books.append(book);
    EXPECT_EQ(book->shelf, right);
    EXPECT_TRUE(left->books.empty());
    book->edit().shelf = left->books.empty() ? left : right;
    EXPECT_EQ(left->books.front(), book);
    EXPECT_FALSE(right->books.contains(book));
    right->edit().books.remove(book);
    EXPECT_EQ(book->shelf, left) << "removing a stranger changes nothing";
    left->edit().books.remove(book);
    EXPECT_EQ(book->shelf, nullptr);
    EXPECT_TRUE(left->books.empty());
}

TEST_F(ModelObjects, MembersThatComeAndGoWhileIteratingAreVisitedOnceAndNoneIsSkipped) {
    const auto shelf = addShelf("shelf");
    constexpr int first = 1'024; // as many as the list has room for: the next one makes it grow
    constexpr int all = 3'000;
    std::vector<std::int64_t> visited, everything(all), kept;
    std::iota(everything.begin(), everything.end(), 0);
    std::copy_if(everything.begin(), everything.end(), std::back_inserter(kept),
                 [](auto i) { return i % 5 == 0; });
    int made = 0;
    while (made < first)
        make<Book>(shelf)->edit().pages = made++;
    for (const auto& book : shelf->books) {
        visited.push_back(*book->pages);
        EXPECT_EQ(shelf->books[shelf->books.size() - 1]->pages, made - 1);
        if (*book->pages % 5 != 0) context().remove(book);
        if (made < all) make<Book>(shelf)->edit().pages = made++;
    }
    EXPECT_EQ(visited, everything);
    EXPECT_EQ(pagesOf(shelf->books), kept);
    for (const std::int64_t pages : kept) { // its head goes, then what is left while it is visited
        if (pages == 1'500) break;
        ASSERT_EQ(shelf->books.front()->pages, pages);
        ASSERT_EQ(shelf->books[5]->pages, pages + 25);
        context().remove(shelf->books.front());
    }
    for (const auto& book : shelf->books) {
        context().remove(book);
        if (shelf->books.empty() && book->pages != 7) make<Book>(shelf)->edit().pages = 7;
    }
    EXPECT_TRUE(shelf->books.empty()) << "the one that came in the place of the last was not visited";
}

TEST_F(ModelObjects, ThereIsOneObjectARowAndItsIdentityLasts) {
    const auto shelf = addShelf("shelf");
    const auto book = make<Book>(shelf);
    const auto identifier = book->persistentId();
    EXPECT_NE(identifier, shelf->persistentId());
    context().save();
    EXPECT_EQ(book->persistentId(), identifier);
    EXPECT_EQ(context().fetch<Book>().front(), book);

    reopen();
    const auto again = context().fetch<Book>().front();
    EXPECT_EQ(again->persistentId(), identifier);
    context().remove(again);
    context().save();
    reopen();
    EXPECT_NE(make<Book>(context().fetch<Shelf>().front())->persistentId(), identifier) << "nobody else's";
}

TEST_F(ModelObjects, UniqueLookUpSeesPendingChangedAndDeletedObjects) {
    const auto first = addShelf("first");
    EXPECT_EQ(context().findUnique<Shelf>("name", "first"), first);
    first->edit().name = "renamed";
    EXPECT_EQ(context().findUnique<Shelf>("name", "first"), nullptr);
    EXPECT_EQ(context().findUnique<Shelf>("name", "renamed"), first);
    auto second = addShelf("first");
    EXPECT_EQ(context().findUnique<Shelf>("name", "first"), second);
    second->edit().name = "second";
    context().remove(std::exchange(second, nullptr));
    for (const char* gone : {"first", "second"})
        EXPECT_EQ(context().findUnique<Shelf>("name", gone), nullptr);
    const auto book = make<Book>(first);
    EXPECT_EQ(context().findUnique<Book>("id", book->id), book);
    context().save();
    reopen();
    EXPECT_TRUE(context().findUnique<Shelf>("name", "renamed"));
}

TEST_F(ModelObjects, ObserversHearOfATurnsChangesOnce) {
    std::vector<std::function<void()>> posted;
    context().deliverChangesThrough([&](auto delivery) { posted.push_back(std::move(delivery)); });
    const auto shelf = addShelf("shelf");
    auto book = make<Book>(shelf);
    std::array<std::size_t, 3> heard{};
    const auto subscription = context().observe([&](const ChangeSet& changes) {
        heard = {changes.inserted.size(), changes.updated.size(), changes.deleted.size()};
    });
    bool isShelfHeard = false;
    std::optional<Subscription> ofShelf = shelf->observe([&] { isShelfHeard = true; });
    const struct {
        const char* name;
        std::function<void()> change;
        std::array<std::size_t, 3> expected; ///< inserted, updated, deleted
        bool isShelfExpected;
    } cases[] = {
        {"an edit", [&] { book->edit().pages = 1; }, {0, 1, 0}, false},
        {"a deletion changes the owner's list", [&] { context().remove(book); }, {0, 1, 1}, true},
        {"all of it at once",
         [&] {
             book = make<Book>(shelf);
             book->edit().pages = 1;
             book->edit().pages = 2;
             context().remove(make<Book>(shelf));
             addShelf("other");
         },
         {2, 1, 1},
         true},
        {"a move", [&] { book->edit().shelf = nullptr; }, {0, 2, 0}, true},
        {"nobody listens", [&] { ofShelf.reset(), shelf->edit().counter = 1; }, {0, 1, 0}, false},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        isShelfHeard = false;
        each.change();
        ASSERT_EQ(posted.size(), 1U);
        std::exchange(posted, {}).front()();
        EXPECT_EQ(heard, each.expected);
        EXPECT_EQ(isShelfHeard, each.isShelfExpected);
    }
    shelf->edit().counter = 2;
    heard = {};
    container.reset();
    posted.back()(); // comes after the end: nothing that is freed is touched
    EXPECT_EQ(heard[1], 0U);
}

TEST_F(ModelObjects, ObjectsOutliveTheirContext) {
    const auto shelf = addShelf("shelf");
    const auto book = make<Book>(shelf);
    container.reset();
    EXPECT_EQ(shelf->name, "shelf");
    EXPECT_TRUE(shelf->books.empty());
    EXPECT_EQ(book->shelf, nullptr);
    book->edit().pages = 3;
    EXPECT_EQ(book->pages, 3);
    {
        const auto loose = make<Shelf>("loose");
        book->edit().shelf = loose;
    }
    EXPECT_EQ(book->shelf, nullptr) << "an object that nobody owns unlinks itself";
}

} // namespace
} // namespace velto::model::test
