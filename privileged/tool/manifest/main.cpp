// kelto-manifest writes the manifest of a bundle, which its publisher then signs with minisign; and verifies a signed
// bundle.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "privileged/tool/BundleItem.h"
#include "privileged/tool/BundleVerification.h"
#include "privileged/tool/BundleVersion.h"
#include "privileged/tool/Failure.h"
#include "privileged/tool/InformationList.h"
#include "privileged/tool/Manifest.h"
#include "privileged/tool/TrustedKeys.h"

namespace {

using namespace AssistantTool;

constexpr const char* usage =
    "Usage: kelto-manifest BUNDLE [--identifier ID] [--version VERSION] [--previous-key KEY]\n"
    "       kelto-manifest --verify BUNDLE\n"
    "\n"
    "Writes BUNDLE/Contents/_Signature/manifest: the bundle's identifier and version, and kind, mode, size and SHA-256\n"
    "of each entry. Sign it with minisign afterwards; the command is printed.\n"
    "\n"
    "  --identifier ID     instead of CFBundleIdentifier of Contents/Info.plist\n"
    "  --version VERSION   instead of CFBundleVersion of Contents/Info.plist\n"
    "  --previous-key KEY  the public key, as \"minisign -P\" takes it, that signed the versions before this one,\n"
    "                      when it is not the key that signs this one\n"
    "  --verify            compares the bundle with its signed manifest instead, by the keys that this machine's\n"
    "                      administrators trust\n";

struct Arguments {
  std::string bundle;
  std::string identifier;
  std::string version;
  std::string previousKey;
  bool wantsHelp = false;
  bool verifies = false;
};

std::string* optionNamed(std::string_view name, Arguments& arguments) {
  if (name == "--identifier") return &arguments.identifier;
  if (name == "--version") return &arguments.version;
  return name == "--previous-key" ? &arguments.previousKey : nullptr;
}

Arguments argumentsOf(const std::vector<std::string>& words) {
  Arguments arguments;
  for (auto word = words.begin(); word != words.end(); ++word) {
    if (*word == "--help") arguments.wantsHelp = true;
    if (*word == "--verify") {
      arguments.verifies = true;
      continue;
    }
    auto* option = optionNamed(*word, arguments);
    if (option != nullptr) {
      if (++word == words.end()) throw Failure(*std::prev(word) + " needs a value");
      *option = *word;
    } else if (word->starts_with("-") || !arguments.bundle.empty()) {
      if (!arguments.wantsHelp) throw Failure("unexpected argument: " + *word);
    } else {
      arguments.bundle = *word;
    }
  }
  if (arguments.bundle.empty() && !arguments.wantsHelp) throw Failure("no bundle is given");
  return arguments;
}

BundleInformation informationOf(int bundle) {
  const BundleItem list(bundle, informationListPath);
  return bundleInformationOf(contentsOfFile(list.descriptor(), maximumInformationListBytes, informationListPath));
}

std::string valueOr(const std::string& given, const std::optional<std::string>& found, const std::string& option) {
  if (!given.empty()) return given;
  if (!found) throw Failure("Contents/Info.plist does not tell it; use " + option);
  return *found;
}

// A publisher learns here, and not at a customer's, of everything that makes the tool refuse the bundle.
void requireAcceptable(int bundle, const ManifestEntry& entry) {
  if (entry.kind == EntryKind::link) return requireLinkInside(bundle, entry.path);
  if ((entry.mode & (S_IWGRP | S_IWOTH)) != 0) throw Failure("others can write " + printable(entry.path));
  if ((entry.mode & (S_ISUID | S_ISGID | S_ISVTX)) != 0)
    throw Failure("a special bit is set in the mode of " + printable(entry.path));
}

// Folders are appended before their contents, and looked into when their turn comes.
std::vector<ManifestEntry> entriesOfBundle(int bundle) {
  std::vector<ManifestEntry> entries;
  std::vector<std::string> paths{std::string(bundleItself)};
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (paths[i] == manifestPath || paths[i] == signaturePath) continue;
    const BundleItem item(bundle, paths[i]);
    entries.push_back(item.described());
    requireAcceptable(bundle, entries.back());
    if (item.kind() != EntryKind::folder) continue;
    for (auto& path : item.contents()) paths.push_back(std::move(path));
  }
  std::ranges::sort(entries, comesBefore, &ManifestEntry::path);
  return entries;
}

Manifest manifestFor(int bundle, const Arguments& arguments) {
  Manifest manifest;
  const bool isAllGiven = !arguments.identifier.empty() && !arguments.version.empty();
  const auto information = isAllGiven ? BundleInformation() : informationOf(bundle);
  manifest.identifier = valueOr(arguments.identifier, information.identifier, "--identifier");
  manifest.version = valueOr(arguments.version, information.version, "--version");
  if (!isBundleIdentifier(manifest.identifier)) throw Failure("not a bundle identifier: " + printable(manifest.identifier));
  if (!isBundleVersion(manifest.version)) throw Failure("not a version of a bundle: " + printable(manifest.version));
  if (!arguments.previousKey.empty()) manifest.previousKey = Minisign::publicKeyOfText(arguments.previousKey);
  manifest.entries = entriesOfBundle(bundle);
  return manifest;
}

posix::Descriptor signatureFolderIn(int bundle) {
  constexpr mode_t folderMode = 0755;
  const bool isMade = ::mkdirat(bundle, signatureFolderPath, folderMode) == 0;
  if (!isMade && errno != EEXIST) failWithSystemError(std::string("cannot make ") + signatureFolderPath);
  posix::Descriptor folder(::openat(bundle, signatureFolderPath, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) failWithSystemError(std::string("cannot open ") + signatureFolderPath);
  // The umask may have taken some away.
  if (isMade && ::fchmod(folder.get(), folderMode) != 0)
    failWithSystemError(std::string("cannot give rights to ") + signatureFolderPath);
  return folder;
}

void writeAll(int file, std::string_view text) {
  while (!text.empty()) {
    const auto written = ::write(file, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) failWithSystemError("cannot write the manifest");
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

// Under another name first: nobody finds half a manifest. The signature of an older one is worth nothing any more.
void writeManifest(int folder, const std::string& text) {
  constexpr mode_t fileMode = 0644;
  constexpr const char* unfinished = "manifest.unfinished";
  const posix::Descriptor file(::openat(folder, unfinished, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, fileMode));
  if (!file || ::fchmod(file.get(), fileMode) != 0) failWithSystemError("cannot write the manifest");
  writeAll(file.get(), text);
  if (::fsync(file.get()) != 0) failWithSystemError("cannot write the manifest");
  if (::unlinkat(folder, "manifest.minisig", 0) != 0 && errno != ENOENT)
    failWithSystemError("cannot remove the old signature");
  if (::renameat(folder, unfinished, folder, "manifest") != 0) failWithSystemError("cannot write the manifest");
}

void verify(int bundle) {
  const auto keys = trustedKeys();
  if (keys.empty()) throw Failure(std::string("no key is trusted: there is none in ") + trustFolderPath);
  const auto [manifest, key, keyName] = signedManifestOf(bundle, keys);
  verifyEntries(bundle, manifest);
  std::printf("identifier: %s\nversion: %s\nkey: %s\nkeyIdentifier: %s\nentries: %zu\n", manifest.identifier.c_str(),
              manifest.version.c_str(), printable(keyName).c_str(), Minisign::textOf(key).c_str(), manifest.entries.size());
}

void run(const Arguments& arguments) {
  const posix::Descriptor bundle(::open(arguments.bundle.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!bundle) failWithSystemError("cannot open " + arguments.bundle);
  if (arguments.verifies) return verify(bundle.get());
  const auto folder = signatureFolderIn(bundle.get());
  ::unlinkat(folder.get(), "manifest.unfinished", 0);  // of a run that was stopped
  const auto manifest = manifestFor(bundle.get(), arguments);
  writeManifest(folder.get(), textOf(manifest));
  std::printf("%s %s, %zu entries. Sign it: minisign -Sm '%s/%s'\n", manifest.identifier.c_str(), manifest.version.c_str(),
              manifest.entries.size(), arguments.bundle.c_str(), manifestPath);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const auto arguments = argumentsOf({argv + 1, argv + argc});
    if (arguments.wantsHelp)
      std::fputs(usage, stdout);
    else
      run(arguments);
    return EXIT_SUCCESS;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "kelto-manifest: %s\n", failure.what());
    return EXIT_FAILURE;
  }
}
