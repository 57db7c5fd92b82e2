// SPDX-License-Identifier: Apache-2.0
#include "agent/probe/Probe.h"

#include <bpf/bpf.h>
#include <bpf/btf.h>
#include <bpf/libbpf.h>
#include <endian.h>
#include <linux/capability.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <string>
#include <utility>

#include <vorn_probe.skel.h>

namespace Agent {

namespace {

using Kes::U32;
using Kes::U64;

constexpr char const* typeInformation = "/sys/kernel/btf/vmlinux";

// What the library said last, which is mostly the reason of a failure.
thread_local std::string lastWords;

[[gnu::format(printf, 2, 0)]] int keepWords(libbpf_print_level level, char const* format, va_list arguments) {
  if (level != LIBBPF_WARN) return 0;
  std::array<char, 512> text{};
  std::vsnprintf(text.data(), text.size(), format, arguments);
  // A program's log has many lines, and then comes how it failed.
  std::string const words = text.data();
  if (words.find("BEGIN PROG LOAD LOG") == std::string::npos) lastWords = words.substr(0, words.find('\n'));
  return 0;
}

bool isLockedDown() {
  std::ifstream file("/sys/kernel/security/lockdown");
  std::string text;
  std::getline(file, text);
  return text.find("[confidentiality]") != std::string::npos;
}

std::string reasonOf(int error) {
  if (error == EPERM) {
    return isLockedDown() ? "the kernel's lockdown forbids it"
                          : "no privilege: it takes CAP_BPF and CAP_PERFMON";
  }
  return std::string(std::strerror(error)) + (lastWords.empty() ? "" : " (" + lastWords + ')');
}

using KernelTypes = std::unique_ptr<btf, decltype(&btf__free)>;

KernelTypes kernelTypes() {
  KernelTypes types(::access(typeInformation, R_OK) == 0 ? btf__load_vmlinux_btf() : nullptr, &btf__free);
  if (types == nullptr) throw ProbeRefused("this kernel has no type information of itself (BTF)");
  if (btf__find_by_name_kind(types.get(), "btf_trace_qdisc_enqueue", BTF_KIND_TYPEDEF) < 0)
    throw ProbeRefused("this kernel is older than 5.14: it does not tell of packets that enter a queue");
  return types;
}

struct Reasons {
  U32 first = 0;
  U32 last = 0;
};

// The numbers by which this kernel says that a queue dropped a packet: those of queues stand in a row.
Reasons dropReasons(btf const& types) {
  Reasons reasons;
  int const id = btf__find_by_name_kind(&types, "skb_drop_reason", BTF_KIND_ENUM);
  if (id < 0) return reasons;
  btf_type const* const type = btf__type_by_id(&types, static_cast<U32>(id));
  auto const* const members = btf_enum(type);
  for (int i = 0; i < btf_vlen(type); ++i) {
    std::string const name = btf__name_by_offset(&types, members[i].name_off);
    if (name.rfind("SKB_DROP_REASON_", 0) != 0) continue;
    std::string const rest = name.substr(16);
    bool const ofQueue =
        rest.rfind("QDISC_", 0) == 0 || rest.rfind("CAKE_", 0) == 0 || rest.rfind("FQ_", 0) == 0;
    if (!ofQueue) continue;
    auto const value = static_cast<U32>(members[i].val);
    reasons.first = reasons.first == 0 ? value : std::min(reasons.first, value);
    reasons.last = std::max(reasons.last, value);
  }
  return reasons;
}

// From 5.19 on the kernel lets a process read and change the maps that it has, without a capability.
bool mapsTakeCapability() {
  utsname system{};
  unsigned major = 0;
  unsigned minor = 0;
  if (::uname(&system) != 0 || std::sscanf(system.release, "%u.%u", &major, &minor) != 2) return true;
  return major < 5 || (major == 5 && minor < 19);
}

void dropCapabilities() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, 2> sets{};
  if (::syscall(SYS_capget, &header, sets.data()) != 0) return;
  U32 dropped = CAP_TO_MASK(CAP_PERFMON);
  if (!mapsTakeCapability()) dropped |= CAP_TO_MASK(CAP_BPF);
  auto& upper = sets[1];
  upper.effective &= ~dropped;
  upper.permitted &= ~dropped;
  upper.inheritable &= ~dropped;
  // Taking away is always allowed.
  ::syscall(SYS_capset, &header, sets.data());
}

U32 maskOf(unsigned bits) { return bits == 0 ? 0 : ~U32{0} << (32 - bits); }
U64 longMaskOf(unsigned bits) { return bits == 0 ? 0 : ~U64{0} << (64 - bits); }

}  // namespace

struct Probe::Kernel {
  Kernel() {
    libbpf_set_print(keepWords);
    lastWords.clear();
  }
  ~Kernel() {
    if (flows != nullptr) ::munmap(flows, flowBytes);
    if (queues != nullptr) ::munmap(queues, queuePlaces * sizeof(ProbedQueue));
    ring_buffer__free(notices);
    vorn_probe__destroy(skeleton);
  }
  Kernel(Kernel const&) = delete;
  Kernel& operator=(Kernel const&) = delete;

  bool load(Options const& options, Reasons const& reasons, bool checked);
  void makeReadable();
  void* map(bpf_map const* map, std::size_t bytes) const;

  // One that throws keeps none of the others from being taken; the exception waits until they are.
  static int handle(void* context, void* data, std::size_t size) {
    auto& kernel = *static_cast<Kernel*>(context);
    ProbeNotice notice{};
    std::memcpy(&notice, data, std::min(size, sizeof notice));
    try {
      (*kernel.handler)(notice);
    } catch (...) {
      if (!kernel.thrown) kernel.thrown = std::current_exception();
    }
    return 0;
  }

  vorn_probe* skeleton = nullptr;
  ring_buffer* notices = nullptr;
  Handler const* handler = nullptr;  // of the call that takes notices
  std::exception_ptr thrown;
  ProbedQueue* queues = nullptr;
  FlowTable* flows = nullptr;
  std::size_t flowBytes = 0;
  int error = 0;
  std::string slowBecause;
};

// `checked`: the kernel checks what the programs read when they are loaded. If not, they are slower.
bool Probe::Kernel::load(Options const& options, Reasons const& reasons, bool checked) {
  skeleton = vorn_probe__open();
  if (skeleton == nullptr) throw ProbeRefused(reasonOf(errno));
  struct stat own {};
  if (::stat("/proc/self/ns/net", &own) != 0) throw ProbeRefused("no /proc/self/ns/net");
  auto* const constants = skeleton->rodata;
  constants->ownNamespace = static_cast<U32>(own.st_ino);
  constants->ipv4Mask = htobe32(maskOf(options.ipv4Prefix));
  constants->ipv6Mask[0] = htobe64(longMaskOf(std::min(options.ipv6Prefix, 64U)));
  constants->ipv6Mask[1] = htobe64(longMaskOf(options.ipv6Prefix - std::min(options.ipv6Prefix, 64U)));
  constants->firstDropReason = reasons.first;
  constants->lastDropReason = reasons.last;
  skeleton->bss->settings.countFlows = options.countFlows;
  auto const& programs = skeleton->progs;
  bpf_program__set_autoload(programs.vorn_enqueue, checked);
  bpf_program__set_autoload(programs.vorn_dequeue, checked);
  bpf_program__set_autoload(programs.vorn_enqueue_raw, !checked);
  bpf_program__set_autoload(programs.vorn_dequeue_raw, !checked);
  bpf_program__set_autoload(programs.vorn_drop, checked && reasons.first != 0);
  bpf_program__set_autoload(programs.vorn_drop_raw, !checked && reasons.first != 0);
  if (!options.countFlows) bpf_map__set_max_entries(skeleton->maps.vorn_flows, 1);
  error = -vorn_probe__load(skeleton);
  if (error == 0) error = -vorn_probe__attach(skeleton);
  if (error == 0) return true;
  vorn_probe__destroy(skeleton);
  skeleton = nullptr;
  return false;
}

void Probe::Kernel::makeReadable() {
  notices = ring_buffer__new(bpf_map__fd(skeleton->maps.vorn_notices), handle, this, nullptr);
  if (notices == nullptr) throw ProbeRefused(reasonOf(errno));
  U32 const tables = bpf_map__max_entries(skeleton->maps.vorn_flows);
  flowBytes = tables * sizeof(FlowTable);
  flows = static_cast<FlowTable*>(map(skeleton->maps.vorn_flows, flowBytes));
  queues = static_cast<ProbedQueue*>(map(skeleton->maps.vorn_queues, queuePlaces * sizeof(ProbedQueue)));
  for (U32 table = 0; table < tables; ++table)
    bpf_map_update_elem(bpf_map__fd(skeleton->maps.vorn_free_tables), nullptr, &table, BPF_ANY);
}

void* Probe::Kernel::map(bpf_map const* map, std::size_t bytes) const {
  void* const mapped = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, bpf_map__fd(map), 0);
  if (mapped == MAP_FAILED) throw ProbeRefused(reasonOf(errno));
  return mapped;
}

Probe::Probe(Options const& options, Limits const& limits) : kernel_(std::make_unique<Kernel>()) {
  // Nothing else takes them, also where it comes to nothing.
  struct Drop {
    ~Drop() { dropCapabilities(); }
  } const drop;
  auto const types = kernelTypes();
  Reasons const reasons = dropReasons(*types);
  if (!kernel_->load(options, reasons, true)) {
    kernel_->slowBecause = reasonOf(kernel_->error);
    if (!kernel_->load(options, reasons, false)) throw ProbeRefused(reasonOf(kernel_->error));
  }
  kernel_->makeReadable();
  limitsAre(limits);
}

Probe::~Probe() = default;

void Probe::limitsAre(Limits const& limits) {
  ProbeSettings& settings = kernel_->skeleton->bss->settings;
  settings.start = limits.startThreshold;
  settings.coalescing = static_cast<U64>(limits.coalescing.count()) * 1000;
  settings.lowest = std::max(limits.startThreshold, 2 * limits.smallestFrame);
  __atomic_fetch_add(&settings.generation, 1, __ATOMIC_RELEASE);
}

void Probe::ignoredIs(U32 ifindex, bool ignored) {
  int const map = bpf_map__fd(kernel_->skeleton->maps.vorn_ignored);
  Kes::U8 const yes = 1;
  if (ignored)
    bpf_map_update_elem(map, &ifindex, &yes, BPF_ANY);
  else
    bpf_map_delete_elem(map, &ifindex);
  __atomic_fetch_add(&kernel_->skeleton->bss->settings.generation, 1, __ATOMIC_RELEASE);
}

int Probe::fd() const { return ring_buffer__epoll_fd(kernel_->notices); }

void Probe::takeNotices(Handler const& handler) {
  kernel_->handler = &handler;
  ring_buffer__consume(kernel_->notices);
  if (auto const thrown = std::exchange(kernel_->thrown, nullptr)) std::rethrow_exception(thrown);
}

void Probe::takeUntold(Handler const& handler) {
  for (U64 const number : kernel_->skeleton->bss->numbers) {
    auto const found = number == 0 ? std::nullopt : queue(number);
    if (found && found->untold != 0)
      handler({number, found->id, found->untold, found->state.burst, found->state.before});
  }
}

std::optional<ProbedQueue> Probe::queue(U64 number) const {
  auto const& numbers = kernel_->skeleton->bss->numbers;
  auto const* const first = numbers + firstPlace(number);
  auto const* const place = std::find(first, first + bucketPlaces, number);
  if (place == first + bucketPlaces) return std::nullopt;
  ProbedQueue const& there = kernel_->queues[place - numbers];
  ProbedQueue queue{};
  // Read until nothing was changed meanwhile; a state that is half of one burst and half of another must not
  // be taken for either.
  constexpr int tries = 64;
  for (int i = 0; i < tries; ++i) {
    auto const version = __atomic_load_n(&there.version, __ATOMIC_ACQUIRE);
    queue = there;
    __atomic_thread_fence(__ATOMIC_ACQUIRE);
    bool const quiet = __atomic_load_n(&there.lock, __ATOMIC_RELAXED) == 0 && queue.lock == 0;
    if (quiet && __atomic_load_n(&there.version, __ATOMIC_RELAXED) == version) break;
  }
  return queue;
}

FlowTable const& Probe::flows(U32 table) const { return kernel_->flows[table - 1]; }

void Probe::giveBack(U32 table) {
  U32 const number = table - 1;
  std::memset(&kernel_->flows[number], 0, sizeof(FlowTable));
  bpf_map_update_elem(bpf_map__fd(kernel_->skeleton->maps.vorn_free_tables), nullptr, &number, BPF_ANY);
}

std::string const& Probe::slowBecause() const { return kernel_->slowBecause; }

ProbeCounts Probe::counts() const { return kernel_->skeleton->bss->counts; }

U64 Probe::missedRuns() const {
  U64 missed = 0;
  bpf_program* program = nullptr;
  bpf_object__for_each_program(program, kernel_->skeleton->obj) {
    bpf_prog_info info{};
    U32 length = sizeof info;
    int const fd = bpf_program__fd(program);
    if (fd >= 0 && bpf_obj_get_info_by_fd(fd, &info, &length) == 0) missed += info.recursion_misses;
  }
  return missed;
}

}  // namespace Agent
