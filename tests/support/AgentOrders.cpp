// The typed orders of an agent.
#include "support/Agent.h"

namespace vqtest {

namespace {

int numberOf(const std::string& text) {
    return std::stoi(text);
}

}  // namespace

int Agent::open(const std::string& file, const std::string& root) {
    return ask({"open", file, root}).code;
}

int Agent::close() {
    return ask({"close"}).code;
}

void Agent::watch() {
    ask({"watch"});
}

void Agent::unwatch() {
    ask({"unwatch"});
}

std::uint64_t Agent::changes() {
    return askCount({"changes"});
}

int Agent::send() {
    return ask({"send"}).code;
}

void Agent::dump() {
    ask({"dump"});
}

int Agent::exit() {
    return ask({"exit"}).code;
}

int Agent::create(const std::string& path) {
    return ask({"create", path}).code;
}

int Agent::openKey(const std::string& path) {
    return ask({"openkey", path}).code;
}

int Agent::deleteKey(const std::string& path) {
    return ask({"delkey", path}).code;
}

int Agent::set(const std::string& path, const std::string& name, std::uint32_t number) {
    return ask({"setd", path, name, std::to_string(number)}).code;
}

int Agent::set(const std::string& path, const std::string& name, const std::string& text) {
    return ask({"sets", path, name, text}).code;
}

int Agent::setBinary(const std::string& path, const std::string& name, const std::string& bytes) {
    return ask({"setb", path, name, toHex(bytes)}).code;
}

int Agent::deleteValue(const std::string& path, const std::string& name) {
    return ask({"delval", path, name}).code;
}

Value Agent::get(const std::string& path, const std::string& name) {
    const Answer got = ask({"get", path, name});
    return {got.code, numberOf(got.fields.at(0)), fromHex(got.fields.at(1))};
}

Value Agent::type(const std::string& path, const std::string& name) {
    const Answer got = ask({"type", path, name});
    return {got.code, numberOf(got.fields.at(0)), {}};
}

KeyNames Agent::enumKeys(const std::string& path) {
    const Answer got = ask({"enumkeys", path});
    return {got.code, got.fields};
}

ValueNames Agent::enumValues(const std::string& path) {
    const Answer got = ask({"enumvals", path});
    ValueNames result;
    result.code = got.code;
    for (std::size_t i = 0; i + 1 < got.fields.size(); i += 2) {
        result.names.emplace_back(got.fields[i], numberOf(got.fields[i + 1]));
    }
    return result;
}

std::uint64_t Agent::stress(const std::string& path, const std::string& name, std::uint64_t count) {
    return askCount({"stress", path, name, std::to_string(count)});
}

std::uint64_t Agent::askCount(const Fields& order) {
    return std::stoull(ask(order).fields.at(0));
}

}  // namespace vqtest
