#include "ModelLibrary.hpp"

#include <numeric>

#include <algorithm>
#include <set>

namespace velto::model::test {
namespace {

class ModelObjects : public ModelTest {
  protected:
    void SetUp() override { open(); }
};

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

TEST_F(ModelObjects, AListKeepsItsOrderThroughRemovalsWhileIterating) {
    const auto shelf = addShelf("shelf");
    for (int i = 0; i < 1000; ++i)
        make<Book>(shelf)->edit().pages = i;
    std::vector<std::int64_t> expected;
    for (const auto& book : shelf->books) {
        if (*book->pages % 3 == 0)
            expected.push_back(*book->pages);
        else
            context().remove(book);
    }
    EXPECT_EQ(pagesOf(shelf->books), expected);
    EXPECT_EQ(shelf->books[5]->pages, 15);
    for (int i = 1000; i < 1400; ++i) {
        make<Book>(shelf)->edit().pages = i;
        expected.push_back(i);
    }
    EXPECT_EQ(pagesOf(shelf->books), expected);
    while (!shelf->books.empty()) {
        ASSERT_EQ(shelf->books.front()->pages, expected.front());
        context().remove(shelf->books.front());
        expected.erase(expected.begin());
    }
    EXPECT_TRUE(expected.empty());
}

TEST_F(ModelObjects, MembersThatComeAndGoWhileIteratingAreVisitedOnceAndNoneIsSkipped) {
    const auto shelf = addShelf("shelf");
    constexpr int first = 1'024; // as many as the list has room for: the next one makes it grow
    constexpr int all = 3'000;
    for (int i = 0; i < first; ++i)
        make<Book>(shelf)->edit().pages = i;
    std::vector<std::int64_t> visited;
    int made = first;
    for (const auto& book : shelf->books) {
        visited.push_back(*book->pages);
        EXPECT_EQ(shelf->books[shelf->books.size() - 1]->pages, made - 1);
        if (*book->pages % 5 != 0) context().remove(book);
        if (made < all) make<Book>(shelf)->edit().pages = made++;
    }
    std::vector<std::int64_t> expected(all);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(visited, expected);
    for (const auto& book : shelf->books) // its end goes while it is visited
        context().remove(book);
    make<Book>(shelf)->edit().pages = 7;
    EXPECT_EQ(pagesOf(shelf->books), std::vector<std::int64_t>{7});
}

TEST_F(ModelObjects, ThereIsOneObjectARowAndItsIdentityLasts) {
    const auto shelf = addShelf("shelf");
    const auto book = make<Book>(shelf);
    const auto identifier = book->persistentId();
    EXPECT_NE(identifier, shelf->persistentId());
    context().save();
    EXPECT_EQ(book->persistentId(), identifier);
    EXPECT_EQ(context().fetch<Book>().front(), book);
    EXPECT_EQ(context().find<Book>(identifier), book);
    EXPECT_EQ(context().find<Shelf>(identifier), nullptr) << "an identifier is of one entity";

    reopen();
    const auto again = context().find<Book>(identifier);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->persistentId().hash(), identifier.hash());
    context().remove(again);
    EXPECT_EQ(context().find<Book>(identifier), nullptr);
    context().save();
    reopen();
    EXPECT_NE(make<Book>(context().fetch<Shelf>().front())->persistentId(), identifier) << "nobody else's";
}

TEST_F(ModelObjects, DeleteRulesReachAsFarAsTheySay) {
    const auto root = addShelf("root");
    const auto inner = addShelf("inner");
    const auto other = addShelf("other");
    inner->edit().parent = root;
    const auto book = make<Book>(inner);
    const auto kept = make<Book>(other);
    const auto loan = make<Loan>("ann", book);
    for (const bool isSaved : {false, true}) {
        if (isSaved) context().save();
        const auto spare = make<Book>(inner);
        context().remove(spare);
        EXPECT_EQ(inner->books.size(), 1U);
    }
    context().remove(root);
    EXPECT_TRUE(root->isDeleted() && inner->isDeleted() && book->isDeleted());
    EXPECT_FALSE(kept->isDeleted() || other->isDeleted() || loan->isDeleted());
    EXPECT_EQ(loan->book, nullptr);
    EXPECT_EQ(inner->name, "inner") << "a deleted object stays readable";
    EXPECT_EQ(book->shelf, nullptr);
    context().save();
    reopen();
    EXPECT_EQ(context().count<Shelf>(), 1U);
    EXPECT_EQ(context().count<Book>(), 1U);
    ASSERT_EQ(context().count<Loan>(), 1U);
    EXPECT_EQ(context().fetch<Loan>().front()->book, nullptr);
}

TEST_F(ModelObjects, UniqueLookUpSeesPendingChangedAndDeletedObjects) {
    const auto first = addShelf("first");
    EXPECT_EQ(context().findUnique<Shelf>("name", "first"), first);
    first->edit().name = "renamed";
    EXPECT_EQ(context().findUnique<Shelf>("name", "first"), nullptr);
    EXPECT_EQ(context().findUnique<Shelf>("name", "renamed"), first);
    const auto second = addShelf("first");
    EXPECT_EQ(context().findUnique<Shelf>("name", "first"), second);
    second->edit().name = "second";
    context().remove(second);
    EXPECT_EQ(context().findUnique<Shelf>("name", "second"), nullptr);
    const auto book = make<Book>(first);
    EXPECT_EQ(context().findUnique<Book>("id", book->id), book);
    context().save();
    reopen();
    EXPECT_TRUE(context().findUnique<Shelf>("name", "renamed"));
}

TEST_F(ModelObjects, FetchFiltersAndSortsStably) {
    for (const char* name : {"b", "a", "dd", "cc", "e"})
        addShelf(name);
    const auto found = context().fetch<Shelf>(
        [](const Shelf& shelf) { return shelf.name != "e"; },
        [](const Shelf& left, const Shelf& right) { return left.name.size() < right.name.size(); });
    std::string names;
    for (const auto& shelf : found)
        names += shelf->name + ' ';
    EXPECT_EQ(names, "b a dd cc ");
}

TEST_F(ModelObjects, ObserversHearOfATurnsChangesOnce) {
    std::vector<std::function<void()>> posted;
    context().deliverChangesThrough([&](auto delivery) { posted.push_back(std::move(delivery)); });
    const auto shelf = addShelf("shelf");
    const auto doomed = make<Book>(shelf);
    std::vector<std::array<std::size_t, 3>> heard;
    auto subscription = context().observe([&](const ChangeSet& changes) {
        heard.push_back({changes.inserted.size(), changes.updated.size(), changes.deleted.size()});
    });
    int shelfChanges = 0;
    auto shelfSubscription = shelf->observe([&] { ++shelfChanges; });

    const auto book = make<Book>(shelf);
    book->edit().pages = 1;
    book->edit().pages = 2;
    context().remove(doomed);
    ASSERT_EQ(posted.size(), 1U);
    posted.front()();
    const std::vector<std::array<std::size_t, 3>> expected{{1, 1, 1}};
    EXPECT_EQ(heard, expected) << "the shelf counts as updated by its list";
    EXPECT_EQ(shelfChanges, 1);

    shelfSubscription = Subscription();
    shelf->edit().counter = 1;
    ASSERT_EQ(posted.size(), 2U);
    posted.back()();
    EXPECT_EQ(heard.size(), 2U);
    EXPECT_EQ(shelfChanges, 1);
    shelf->edit().counter = 2;
    container.reset();
    posted.back()(); // comes after the end: nothing to tell, nothing freed is touched
    EXPECT_EQ(heard.size(), 2U);
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
