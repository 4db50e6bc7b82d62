// Calls of VQRegStore.h on keys and values.
#include "memory/CallTexts.h"
#include "memory/StoreScene.h"

namespace vqtorture {

namespace {

void openKey(StoreScene& scene) {
    scene.key = scene.store->key("Key");
}

template <typename T, typename Expected>
auto getting(const char* name, const Expected& expected) {
    return [=](StoreScene& scene, auto&... error) {
        const std::optional<T> got = scene.key.get<T>(name, error...);
        check(!isDone(error...) || (got && *got == expected), "it reads something else");
    };
}

void addQueries(std::vector<StoreCall>& all) {
    addBoth(all, "Key::get of a number", kStart, getting<int>("Deep", 3), openKey);
    addBoth(all, "Key::get of a text", kStart,
            getting<std::string>("Text", std::string_view("below the root key")), openKey);
    addBoth(all, "Key::get of bytes", kStart,
            getting<vqreg::Bytes>("Bytes", vqreg::Bytes{std::byte{1}, std::byte{2}}), openKey);
    addBoth(
        all, "Key::get_or", kStart,
        [](StoreScene& scene, auto&... error) {
            const std::string got = scene.key.get_or("None", "another text that is long", error...);
            check(!isDone(error...) || got == "another text that is long", "another fallback");
        },
        openKey);
    addBoth(
        all, "Key::value", kStart,
        [](StoreScene& scene, auto&... error) {
            const std::optional<vqreg::Value> got = scene.key.value("Deep", error...);
            check(!isDone(error...) || (got && got->type() == vqreg::Type::dword), "no value");
        },
        openKey);
    addBoth(
        all, "Key::values", kStart,
        [](StoreScene& scene, auto&... error) {
            check(scene.key.values(error...).size() == 3 || !isDone(error...), "other values");
        },
        openKey);
    addBoth(
        all, "Key::get of another type", kStart,
        [](StoreScene& scene, auto&... error) { (void)scene.key.get<int>("Text", error...); },
        openKey, VQREG_E_BAD_TYPE);
}

void addChanges(std::vector<StoreCall>& all) {
    addBoth(
        all, "Key::set of a number", withKey(kBytesLine + "\"Deep\"=dword:00000004\n" + kTextLine),
        [](StoreScene& scene, auto&... error) { scene.key.set("Deep", 4, error...); }, openKey);
    addBoth(
        all, "Key::set of a text", withKey(kBytesLine + kDeepLine + "\"Text\"=string:new\n"),
        [](StoreScene& scene, auto&... error) { scene.key.set("Text", "new", error...); }, openKey);
    addBoth(
        all, "Key::set of what cannot be stored", kStart,
        [](StoreScene& scene, auto&... error) { scene.key.set("two\nlines", 4, error...); },
        openKey, VQREG_E_NOT_STORABLE);
    addBoth(
        all, "Key::erase", withKey(kBytesLine + kDeepLine),
        [](StoreScene& scene, auto&... error) { (void)scene.key.erase("Text", error...); },
        openKey);
}

void addKeys(std::vector<StoreCall>& all) {
    addBoth(
        all, "Key::key", kStart,
        [](StoreScene& scene, auto&... error) {
            check(scene.key.key("Sub", error...) || !isDone(error...), "no key");
        },
        openKey);
    addBoth(
        all, "Key::create", withMore("[Velquist/Key/Sup]\n"),
        [](StoreScene& scene, auto&... error) {
            check(scene.key.create("Sup", error...) || !isDone(error...), "no key");
        },
        openKey);
    addBoth(
        all, "Key::find of none", kStart,
        [](StoreScene& scene, auto&... error) {
            check(!scene.key.find("None", error...), "a key");
        },
        openKey);
    addBoth(
        all, "Key::keys", kStart,
        [](StoreScene& scene, auto&... error) {
            const std::vector<vqreg::Key> keys = scene.key.keys(error...);
            check(!isDone(error...) || keys.size() == 1, "other keys");
        },
        openKey);
    addBoth(
        all, "Key::key_names", kStart,
        [](StoreScene& scene, auto&... error) {
            const std::vector<std::string> names = scene.key.key_names(error...);
            check(!isDone(error...) || (names.size() == 1 && names.front() == "Sub"), "others");
        },
        openKey);
}

}  // namespace

std::vector<StoreCall> keyCalls() {
    std::vector<StoreCall> all;
    addQueries(all);
    addChanges(all);
    addKeys(all);
    return all;
}

}  // namespace vqtorture
