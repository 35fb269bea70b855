#include "ModelLibrary.hpp"

#include "platform/model/InBackground.hpp"
#include "support/TestRuntime.hpp"

namespace velto::model::test {
namespace {

constexpr int many = 3000; // takes several turns to capture

class ModelBackgroundSave : public ModelTest {
  protected:
    void SetUp() override {
        open();
        shelf = addShelf("shelf");
        context().save();
        for (int i = 0; i < many; ++i)
            make<Book>(shelf)->edit().pages = i;
    }

    void start() {
        asio::co_spawn(runtime.main(), saveInBackground(context(), runtime.executors()),
                       [this](const std::exception_ptr& error) { failure = error, hasEnded = true; });
    }

    /// Lets the first turns of the capture run, while further ones are to come.
    void startAndStop() {
        start();
        asio::post(runtime.main(), [this] { isUnderWay = true; });
        runtime.runUntil([this] { return isUnderWay; });
    }

    void finish() {
        runtime.runUntil([this] { return hasEnded; });
        hasEnded = false;
    }

    std::string stored(const std::string& what) const { return sql("SELECT " + what + " FROM Book"); }

    velto::test::TestRuntime runtime;
    Ref<Shelf> shelf;
    std::exception_ptr failure;
    bool hasEnded = false;
    bool isUnderWay = false;
};

TEST_F(ModelBackgroundSave, WritesWhatAPlainSaveWouldWrite) {
    start();
    finish();
    EXPECT_FALSE(failure);
    EXPECT_FALSE(context().hasChanges());
    EXPECT_EQ(stored("count(*)"), std::to_string(many));
    shelf->edit().counter = 5;
    context().remove(shelf->books[7]);
    shelf->books[3]->edit().shelf = nullptr;
    start();
    finish();
    reopen();
    const auto again = context().fetch<Shelf>().front();
    EXPECT_EQ(again->counter, 5);
    EXPECT_EQ(again->books.size(), static_cast<std::size_t>(many - 2));
}

TEST_F(ModelBackgroundSave, ChangesBetweenTheTurnsOfTheCaptureAreNeitherLostNorTorn) {
    startAndStop();
    ASSERT_FALSE(hasEnded);
    const auto late = make<Shelf>("late");
    context().insert(late);
    context().remove(shelf->books[many - 1]); // captured already, or still to be: both ends of the order
    context().remove(shelf->books.front());
    for (const auto& book : shelf->books.all())
        book->edit().shelf = late;
    context().remove(shelf);
    finish();
    EXPECT_FALSE(failure) << describe(failure);
    context().save();
    reopen();
    EXPECT_EQ(context().fetch<Shelf>().size(), 1U);
    EXPECT_EQ(context().fetch<Shelf>().front()->books.size(), static_cast<std::size_t>(many - 2));
    EXPECT_EQ(sql("PRAGMA foreign_key_check"), "");
}

TEST_F(ModelBackgroundSave, AFailureMakesAllOfItPendingAgain) {
    sql("CREATE TRIGGER obstacle BEFORE INSERT ON Book WHEN NEW.pages = 2000 "
        "BEGIN SELECT RAISE(ABORT, 'obstacle'); END");
    context().remove(shelf->books[10]);
    start();
    finish();
    EXPECT_TRUE(failure);
    EXPECT_TRUE(context().hasChanges());
    EXPECT_EQ(stored("count(*)"), "0");
    sql("DROP TRIGGER obstacle");
    start();
    finish();
    EXPECT_FALSE(failure) << describe(failure);
    EXPECT_EQ(stored("count(*)"), std::to_string(many - 1));
}

TEST_F(ModelBackgroundSave, APlainSaveMayComeBetween) {
    startAndStop();
    ASSERT_FALSE(hasEnded);
    context().save();
    EXPECT_EQ(stored("count(*)"), std::to_string(many));
    for (const auto& book : shelf->books)
        book->edit().pages = -1;
    finish();
    EXPECT_FALSE(failure) << describe(failure);
    start();
    start();
    finish();
    finish();
    EXPECT_FALSE(failure) << describe(failure);
    context().save();
    EXPECT_EQ(stored("sum(pages)"), std::to_string(-many));
}

TEST_F(ModelBackgroundSave, LoadingInTheBackgroundGivesTheSameGraphAndYieldsToAPlainLoad) {
    context().save();
    for (const bool isInterrupted : {false, true}) {
        reopen();
        asio::co_spawn(runtime.main(), loadInBackground(context(), runtime.executors()),
                       [this](const std::exception_ptr& error) { failure = error, hasEnded = true; });
        if (isInterrupted) {
            runtime.poll();
            shelf = context().fetch<Shelf>().front();
            make<Book>(shelf);
        }
        finish();
        EXPECT_FALSE(failure) << describe(failure);
        EXPECT_EQ(isInterrupted, context().fetch<Shelf>().front() == shelf) << "its objects stay";
        EXPECT_EQ(context().count<Book>(), static_cast<std::size_t>(many + (isInterrupted ? 1 : 0)));
        EXPECT_EQ(context().fetch<Shelf>().front()->books.size(), context().count<Book>());
    }
}

TEST_F(ModelBackgroundSave, AnIndexMadeInTurnsFollowsWhatHappensBetweenThem) {
    const auto books = shelf->books.all();
    const Uuid oldEarly = books[1]->id, oldLate = books[many - 2]->id;
    asio::co_spawn(runtime.main(), indexInBackground(context(), entityDescription<Book>(), 0),
                   [this](const std::exception_ptr& error) { failure = error, hasEnded = true; });
    asio::post(runtime.main(), [this] { isUnderWay = true; });
    runtime.runUntil([this] { return isUnderWay; });
    ASSERT_FALSE(hasEnded);
    for (const int end : {0, many - 1}) // one end is indexed already, the other is not
        context().remove(books[static_cast<std::size_t>(end)]);
    for (const int changed : {1, many - 2})
        books[static_cast<std::size_t>(changed)]->edit().id = Uuid::random();
    const auto added = make<Book>(shelf);
    finish();
    EXPECT_FALSE(failure) << describe(failure);
    for (const Uuid& gone : {books.front()->id, books.back()->id, oldEarly, oldLate})
        EXPECT_FALSE(context().findUnique<Book>("id", gone));
    for (const auto& book : shelf->books)
        ASSERT_EQ(context().findUnique<Book>("id", book->id), book);
    EXPECT_EQ(context().findUnique<Book>("id", added->id), added);
}

TEST_F(ModelBackgroundSave, AVisitInTurnsSeesWhatIsThereAtItsTurn) {
    std::vector<Ref<Book>> seen;
    const auto keep = [&](const Ref<Book>& book) { seen.push_back(book); };
    auto expected = shelf->books.all();
    asio::co_spawn(runtime.main(), forEachInTurns<Book>(context(), keep),
                   [this](const std::exception_ptr& error) { failure = error, hasEnded = true; });
    asio::post(runtime.main(), [this] { isUnderWay = true; });
    runtime.runUntil([this] { return isUnderWay; });
    ASSERT_FALSE(hasEnded);
    context().remove(seen.back()); // where the next turn goes on
    context().remove(expected.back());
    expected.back() = make<Book>(shelf);
    finish();
    EXPECT_EQ(seen, expected);
}

TEST_F(ModelBackgroundSave, TheContextMayGoInTheMiddle) {
    startAndStop();
    container.reset();
    finish();
    EXPECT_EQ(shelf->books.size(), 0U);
    open();
    EXPECT_EQ(context().count<Shelf>(), 1U);
}

} // namespace
} // namespace velto::model::test
