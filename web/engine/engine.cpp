// The module's way in: requests are looked up by their verbs.

#include "engine.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

namespace qv::web {
namespace {

Json answer(std::string_view verb, std::string_view request) {
  for (const auto verbs : {parameter_verbs(), call_verbs()})
    if (const auto found = std::ranges::find(verbs, verb, &Verb::name); found != verbs.end())
      return found->answer(Json::parse(request));
  return refused("there is no verb " + std::string(verb));
}

std::string reply;

} // namespace

config::Image image_in(const Json &request) {
  config::Image image{};
  std::ranges::copy(array_at<int16_t>(request.at("words")).first(image.size()), image.begin());
  return image;
}

} // namespace qv::web

extern "C" {

[[clang::export_name("allocate")]] void *allocate(size_t bytes) { return std::malloc(bytes); }
[[clang::export_name("release")]] void release(void *memory) { std::free(memory); }

/// @return the reply's UTF-8, `reply_size()` bytes, until the next request
[[clang::export_name("ask")]] const char *ask(const char *verb, const char *request) {
  qv::web::reply = qv::web::answer(verb, request).dump(-1, ' ', false, qv::web::Json::error_handler_t::replace);
  return qv::web::reply.data();
}
[[clang::export_name("reply_size")]] size_t reply_size() { return qv::web::reply.size(); }

// There is no unwinding here: what is thrown ends the module, after its message. The page then starts another one.
void *__cxa_allocate_exception(size_t bytes) { return std::malloc(bytes); }
[[noreturn]] void __cxa_throw(void *thrown, void *, void (*)(void *)) {
  std::fprintf(stderr, "%s", static_cast<const std::exception *>(thrown)->what());
  std::abort();
}
}
