// Values and interfaces below pictures and sound.
#include <memory>
#include <string>
#include <string_view>

#include "faults/digest.h"
#include "faults/scenario.h"
#include "logger/logger.h"
#include "objstream/json.h"
#include "vdr_utils/warnings_store_async.h"
#include "vidorra/core/av_res.h"
#include "vidorra/core/dictionary.h"
#include "vidorra/core/enum_text.h"
#include "vidorra/core/metadata.h"
#include "vidorra/core/timestamp.h"

extern "C" {
#include <libavutil/dict.h>
}

namespace vidorra::test {
namespace {

constexpr std::string_view kText = "a text that is too long for a short string";

class Json : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        const objstream::object parsed = objstream::parseJson(
            R"({"codec": "libx264 with a name that needs memory", "options": {"b": 4000000, "list": [1, 2.5,)"
            R"( true, "\u00e4\ud83d\ude00"]}, "filter": "scale=640:360,hflip,format=yuv420p"})");
        mObject = parsed;
        mObject["options"]["a key that is long enough to need memory"] = 7;
        objstream::object copy = mObject;
        copy["options"]["b"] = "text";
        digest.add(objstream::toJson(mObject));
        digest.add(objstream::toJson(copy, objstream::JsonLayout::Pretty));
        digest.add(mObject["options"]["b"].getValue<int>());
        digest.add(mObject["codec"].getValue<std::string>());
        return digest.value();
    }

    std::uint64_t runAgain() override { return run(); }

private:
    objstream::object mObject;
};

class Warnings : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        {
            mWarning = mStore->add(std::string(kText));
            const auto second = mStore->add(std::string(kText) + " and a second one");
            mWarning = mStore->add(std::string(kText) + " and a third one");
            addTexts(digest);
        }
        mWarning = {};
        addTexts(digest);
        return digest.value();
    }

    std::uint64_t runAgain() override {
        // Nothing is left of warnings that are gone.
        mWarning = {};
        Digest digest;
        addTexts(digest);
        digest.add(run());
        digest.add(mShown);
        return digest.value();
    }

private:
    using Store = vx::vdr::utils::WarningsStoreAsync;

    std::shared_ptr<Store> makeStore() {
        auto store = std::make_shared<Store>();
        store->setObserver([this](Store::Change change, const std::string&) {
            mShown += change == Store::Change::Shown ? 1 : -1;
        });
        return store;
    }

    void addTexts(Digest& digest) {
        for (const std::string& text : mStore->texts()) {
            digest.add(text);
        }
    }

    int mShown = 0;
    std::shared_ptr<Store> mStore = makeStore();
    vx::vdr::utils::Warning mWarning;
};

class Logging : public Scenario {
public:
    std::uint64_t run() override {
        FirstFailure failure;
        failure.during([] { logger::log(logger::Level::Info, std::string(kText)) << "line " << 1 << kText; });
        failure.during([] { logger::print(logger::Level::Info, "%s %d", std::string(kText).c_str(), 2); });
        failure.during([] { logger::log(logger::Level::Trace) << kText; });
        failure.rethrow();
        return 0;
    }

    std::uint64_t runAgain() override {
        std::string lines;
        logger::setSink([&lines](logger::Level, std::string_view line) { lines += line; });
        static_cast<void>(run());
        logger::setSink({});
        Digest digest;
        digest.add(lines);
        return digest.value();
    }
};

class Values : public Scenario {
public:
    std::uint64_t run() override {
        Digest digest;
        Dictionary dictionary;
        AvRes(av_dict_set(dictionary.address(), "key", kText.data(), 0)).throwIfError("not set");
        mDictionary = dictionary;
        digest.add(mDictionary.getValue("key").value_or(""));
        Metadata metadata;
        metadata.addValue(std::string(kText), std::string(kText));
        mMetadata = metadata;
        digest.add(mMetadata[std::string(kText)]);
        digest.add(fmt::format("{} {} {}", AV_PIX_FMT_NV12, AVCOL_RANGE_MPEG, AvError::Eof.toString()));
        return digest.value();
    }

    std::uint64_t runAgain() override { return run(); }

private:
    Dictionary mDictionary;
    Metadata mMetadata;
};

}  // namespace

std::vector<NamedScenario> platformScenarios() {
    return {{"json", makeScenario<Json>},
            {"warnings", makeScenario<Warnings>},
            {"logging", makeScenario<Logging>},
            {"values", makeScenario<Values>}};
}

}  // namespace vidorra::test
