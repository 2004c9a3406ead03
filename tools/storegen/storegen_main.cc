// storegen: writes a sample store of generated mail under a mail root, or a
// single generated message to a file.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/env.h"
#include "storegen/message_generator.h"
#include "storegen/store_generator.h"

namespace {

using qaaisp::storegen::MessageKind;

bool KindByName(const std::string& name, MessageKind* kind) {
  static const std::pair<const char*, MessageKind> kNames[] = {
      {"plain", MessageKind::kPlain},      {"alternative", MessageKind::kAlternative},
      {"mixed", MessageKind::kMixed},      {"invitation", MessageKind::kInvitation},
      {"list", MessageKind::kMailingList}, {"forward", MessageKind::kForward},
      {"legacy", MessageKind::kLegacy},
  };
  for (const auto& [text, value] : kNames) {
    if (name == text) {
      *kind = value;
      return true;
    }
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Writes a sample mail store of generated messages, deterministic by seed."};
  qaaisp::storegen::StorePlan plan;
  std::string message_path;
  std::string kind_name;
  app.add_option("--root", plan.root, "Mail root to write the postoffice under");
  app.add_option("--postoffice", plan.postoffice, "Postoffice name")->capture_default_str();
  app.add_option("--mailboxes", plan.mailboxes, "Mailbox names")
      ->delimiter(',')
      ->capture_default_str();
  app.add_option("--messages", plan.messages, "Messages over all mailboxes")->capture_default_str();
  app.add_option("--seed", plan.seed, "Seed; the same seed gives the same store")
      ->capture_default_str();
  app.add_option("--message", message_path, "Write one generated message to this file instead");
  app.add_option("--kind", kind_name,
                 "Kind of the one message: plain, alternative, mixed, invitation, list, "
                 "forward or legacy");
  CLI11_PARSE(app, argc, argv);

  qaaisp::platform::Env* env = qaaisp::platform::Env::Default();
  if (!message_path.empty()) {
    qaaisp::storegen::MessageGenerator generator(plan.seed);
    qaaisp::storegen::MessageKind kind = MessageKind::kPlain;
    if (!kind_name.empty() && !KindByName(kind_name, &kind)) {
      std::fprintf(stderr, "storegen: unknown kind \"%s\"\n", kind_name.c_str());
      return 2;
    }
    const std::string text = kind_name.empty() ? generator.Next().text : generator.Next(kind).text;
    if (!qaaisp::storegen::WriteFileBytes(env, message_path, text)) {
      std::fprintf(stderr, "storegen: cannot write %s\n", message_path.c_str());
      return 3;
    }
    return 0;
  }
  if (plan.root.empty()) {
    std::fprintf(stderr, "storegen: --root or --message is required\n");
    return 2;
  }
  qaaisp::storegen::StoreReport report;
  std::string error;
  if (!qaaisp::storegen::MakeDirectories(env, plan.root) ||
      !qaaisp::storegen::GenerateStore(env, plan, &report, &error)) {
    std::fprintf(stderr, "storegen: %s\n", error.empty() ? "cannot make the root" : error.c_str());
    return 3;
  }
  std::printf(
      "Generated %u messages (%.1f MB, %u with attachments, %u calendar messages) in %zu "
      "folders of %zu mailboxes under %s/%s\n",
      report.messages, static_cast<double>(report.bytes) / (1024.0 * 1024.0),
      report.with_attachments, report.invitations, report.folders.size(), plan.mailboxes.size(),
      plan.root.c_str(), plan.postoffice.c_str());
  return 0;
}
