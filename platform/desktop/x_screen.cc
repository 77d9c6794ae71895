#include "platform/desktop/x_screen.h"

// clang-format off
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/Xdamage.h>
#include <X11/extensions/Xfixes.h>
// clang-format on
#include <poll.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <vector>

#include "platform/x11/x_connection.h"

namespace platform::desktop {
namespace {

// Returning from here instead of exiting leaves the connection unusable; the grabber is dead.
void markLost(Display*, void* flag) { static_cast<std::atomic<bool>*>(flag)->store(true); }

}  // namespace

bool xScreenSize(const std::string& name, uint32_t& width, uint32_t& height) {
  Display* dpy = x11::openDisplay(name);
  if (dpy == nullptr) return false;
  width = uint32_t(DisplayWidth(dpy, DefaultScreen(dpy)));
  height = uint32_t(DisplayHeight(dpy, DefaultScreen(dpy)));
  x11::closeDisplay(dpy);
  return true;
}

struct XScreenGrabber::Connection {
  Display* display = nullptr;
  Window root = 0;
  Visual* visual = nullptr;
  int depth = 0;
  Damage damage = 0;
  int damageEvent = 0;
  XserverRegion changed = 0;  // where the screen changed, moved out of the damage at each grab
  bool shm = false;
  XShmSegmentInfo segment{};  // sized for the whole screen
  std::shared_ptr<std::atomic<bool>> lostFlag;  // kept alive while Xlib may call markLost

  ~Connection() {
    if (display == nullptr) return;
    if (!lostFlag->load()) {
      if (damage != 0) XDamageDestroy(display, damage);
      if (changed != 0) XFixesDestroyRegion(display, changed);
      if (shm) XShmDetach(display, &segment);
      XSync(display, False);
    }
    if (segment.shmaddr != nullptr) shmdt(segment.shmaddr);
    x11::closeDisplay(display);
  }
};

std::unique_ptr<XScreenGrabber> XScreenGrabber::open(const std::string& name) {
  std::unique_ptr<XScreenGrabber> grabber(new XScreenGrabber);
  auto connection = std::make_unique<Connection>();
  connection->lostFlag = grabber->lost;
  // The process's X error handlers come with the connection; a lost connection marks this
  // grabber dead through a handler of its own.
  connection->display = x11::openDisplay(name);
  if (connection->display == nullptr) return nullptr;
  Display* dpy = connection->display;
  XSetIOErrorExitHandler(dpy, markLost, grabber->lost.get());
  int screen = DefaultScreen(dpy);
  connection->root = RootWindow(dpy, screen);
  Visual* visual = connection->visual = DefaultVisual(dpy, screen);
  int depth = connection->depth = DefaultDepth(dpy, screen);
  grabber->width = uint32_t(DisplayWidth(dpy, screen));
  grabber->height = uint32_t(DisplayHeight(dpy, screen));
  if (visual->red_mask != 0xFF0000 || visual->green_mask != 0xFF00 || visual->blue_mask != 0xFF) return nullptr;

  int damageError = 0;
  if (!XDamageQueryExtension(dpy, &connection->damageEvent, &damageError)) return nullptr;
  // Regions came with XFixes 2.
  int fixesEvent = 0, fixesError = 0, fixesMajor = 0, fixesMinor = 0;
  if (!XFixesQueryExtension(dpy, &fixesEvent, &fixesError) || !XFixesQueryVersion(dpy, &fixesMajor, &fixesMinor) ||
      fixesMajor < 2)
    return nullptr;
  connection->damage = XDamageCreate(dpy, connection->root, XDamageReportNonEmpty);
  connection->changed = XFixesCreateRegion(dpy, nullptr, 0);

  if (XShmQueryExtension(dpy)) {
    XImage* image = XShmCreateImage(dpy, visual, unsigned(depth), ZPixmap, nullptr, &connection->segment,
                                    grabber->width, grabber->height);
    if (image != nullptr && image->bits_per_pixel == 32) {
      connection->segment.shmid = shmget(IPC_PRIVATE, size_t(image->bytes_per_line) * image->height, IPC_CREAT | 0600);
      if (connection->segment.shmid >= 0) {
        connection->segment.shmaddr = image->data = static_cast<char*>(shmat(connection->segment.shmid, nullptr, 0));
        // Marked for removal at once: it goes with the last detach, even if this process dies.
        shmctl(connection->segment.shmid, IPC_RMID, nullptr);
        if (connection->segment.shmaddr == reinterpret_cast<char*>(-1)) {
          connection->segment.shmaddr = nullptr;
          image->data = nullptr;
        } else {
          connection->segment.readOnly = False;
          connection->shm = XShmAttach(dpy, &connection->segment) != 0;
        }
      }
    }
    if (image != nullptr) {  // only sized the segment; each grab makes images of its own
      image->data = nullptr;
      XDestroyImage(image);
    }
  }
  XSync(dpy, False);
  if (grabber->dead()) return nullptr;
  grabber->x = std::move(connection);
  int32_t x = 0, y = 0;
  grabber->pointerMoved(x, y);  // where it stands now is no move
  return grabber;
}

XScreenGrabber::~XScreenGrabber() = default;

bool XScreenGrabber::waitForDamage(uint32_t milliseconds) {
  using clock = std::chrono::steady_clock;
  auto deadline = clock::now() + std::chrono::milliseconds(milliseconds);
  Display* dpy = x->display;
  for (;;) {
    if (dead()) return false;
    bool damaged = damagePending;
    damagePending = false;
    while (!dead() && XPending(dpy) > 0) {
      XEvent event;
      XNextEvent(dpy, &event);
      if (event.type == x->damageEvent + XDamageNotify) damaged = true;
    }
    if (damaged || dead()) return damaged && !dead();
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now()).count();
    if (left <= 0) return false;
    pollfd fd{ConnectionNumber(dpy), POLLIN, 0};
    poll(&fd, 1, int(left));
  }
}

bool XScreenGrabber::pointerMoved(int32_t& px, int32_t& py) {
  if (dead()) return false;
  Window root = 0, child = 0;
  int rootX = 0, rootY = 0, winX = 0, winY = 0;
  unsigned mask = 0;
  // A round trip; XFixes would tell of shape changes only, not of moves.
  if (!XQueryPointer(x->display, x->root, &root, &child, &rootX, &rootY, &winX, &winY, &mask) || dead())
    return false;
  bool moved = rootX != pointerX || rootY != pointerY;
  pointerX = px = rootX;
  pointerY = py = rootY;
  return moved;
}

namespace {

// A rectangle of the screen.
struct Area {
  int x = 0, y = 0, w = 0, h = 0;
  int64_t pixels() const { return int64_t(w) * h; }
};

Area clip(const Area& a, int width, int height) {
  int left = std::max(a.x, 0), top = std::max(a.y, 0);
  int right = std::min(a.x + a.w, width), bottom = std::min(a.y + a.h, height);
  if (right <= left || bottom <= top) return {};
  return {left, top, right - left, bottom - top};
}

// Each fetch is a round trip: 10 to 70 us under a local server, as long as copying some 16k to
// 110k pixels.
constexpr int64_t kFetchCostInPixels = 32 * 1024;
// Past this many areas (text drawn glyph by glyph) the round trips add up: one fetch takes them.
constexpr size_t kMostFetches = 16;

// The areas to fetch for the changed rectangles: each of them, or their bounding box when one
// fetch of it costs less than a fetch of each.
std::vector<Area> areasToFetch(const XRectangle* rects, int count, int width, int height) {
  std::vector<Area> areas;
  Area box;
  int64_t pixels = 0;
  for (int i = 0; i < count; ++i) {
    Area a = clip({rects[i].x, rects[i].y, rects[i].width, rects[i].height}, width, height);
    if (a.w == 0) continue;
    if (areas.empty()) {
      box = a;
    } else {
      int right = std::max(box.x + box.w, a.x + a.w), bottom = std::max(box.y + box.h, a.y + a.h);
      box.x = std::min(box.x, a.x);
      box.y = std::min(box.y, a.y);
      box.w = right - box.x;
      box.h = bottom - box.y;
    }
    areas.push_back(a);
    pixels += a.pixels();
  }
  if (areas.size() > kMostFetches) return {box};
  if (areas.size() > 1 && box.pixels() <= pixels + int64_t(areas.size() - 1) * kFetchCostInPixels) return {box};
  return areas;
}

}  // namespace

bool XScreenGrabber::grab(uint8_t* bytes, uint32_t rowPitch, uint32_t w, uint32_t h) {
  if (dead()) return false;
  Display* dpy = x->display;
  // The damage is emptied into `changed` before the image is taken: the damage reports only when
  // it turns non-empty, so damage after this point must find it empty to make the next frame.
  // Reports sent before the request was carried out are of damage in this image; they are told
  // apart from later ones by the request's serial, so no extra round trip is needed.
  unsigned long emptiedAt = NextRequest(dpy);
  // Only what changed is fetched into a buffer that still holds the last grab; anything else (the
  // first grab, another buffer) takes the whole screen.
  bool whole = !keptValid || bytes != keptBytes || rowPitch != keptPitch || w != keptWidth || h != keptHeight;
  keptValid = false;
  int copyWidth = int(std::min(w, width));
  int copyHeight = int(std::min(h, height));
  std::vector<Area> areas;
  if (whole) {
    XDamageSubtract(dpy, x->damage, None, None);
    areas.push_back({0, 0, copyWidth, copyHeight});
  } else {
    // One request moves the damage into `changed` and empties it.
    XDamageSubtract(dpy, x->damage, None, x->changed);
    int count = 0;
    XRectangle* rects = XFixesFetchRegion(dpy, x->changed, &count);
    if (dead()) {
      if (rects != nullptr) XFree(rects);
      return false;
    }
    areas = areasToFetch(rects, rects != nullptr ? count : 0, copyWidth, copyHeight);
    if (rects != nullptr) XFree(rects);
  }
  bool answered = !whole;  // the region's fetch waited for its answer
  for (const Area& area : areas) {
    if (area.w == 0 || area.h == 0) continue;
    if (!fetch(area.x, area.y, area.w, area.h, bytes, rowPitch)) return false;
    answered = true;
  }
  // An answer comes after every report sent before the damage was emptied.
  if (!answered) XSync(dpy, False);
  while (!dead() && XPending(dpy) > 0) {
    XEvent event;
    XNextEvent(dpy, &event);
    if (event.type == x->damageEvent + XDamageNotify && event.xany.serial >= emptiedAt) damagePending = true;
  }
  if (whole) {
    for (uint32_t y = 0; y < h; ++y) {
      uint32_t* row = reinterpret_cast<uint32_t*>(bytes + size_t(y) * rowPitch);
      uint32_t from = y < uint32_t(copyHeight) ? uint32_t(copyWidth) : 0;
      std::fill(row + from, row + w, 0xFF000000u);
    }
  }
  keptValid = true;
  keptBytes = bytes;
  keptPitch = rowPitch;
  keptWidth = w;
  keptHeight = h;
  return true;
}

bool XScreenGrabber::fetch(int left, int top, int w, int h, uint8_t* bytes, uint32_t rowPitch) {
  Display* dpy = x->display;
  XImage* image = nullptr;
  if (x->shm) {
    // The server writes the area's rows packed from the segment's start, so the segment sized
    // for the whole screen fits any area.
    image = XShmCreateImage(dpy, x->visual, unsigned(x->depth), ZPixmap, x->segment.shmaddr, &x->segment,
                            unsigned(w), unsigned(h));
    if (image == nullptr) return false;
    if (!XShmGetImage(dpy, x->root, image, left, top, AllPlanes) || dead()) {
      image->data = nullptr;
      XDestroyImage(image);
      return false;
    }
  } else {
    image = XGetImage(dpy, x->root, left, top, unsigned(w), unsigned(h), AllPlanes, ZPixmap);
    if (image == nullptr) return false;
  }
  bool ok = image->bits_per_pixel == 32 && !dead();
  for (int y = 0; ok && y < h; ++y) {
    const uint32_t* from = reinterpret_cast<const uint32_t*>(image->data + size_t(y) * image->bytes_per_line);
    uint32_t* to = reinterpret_cast<uint32_t*>(bytes + size_t(top + y) * rowPitch) + left;
    for (int i = 0; i < w; ++i) to[i] = from[i] | 0xFF000000u;
  }
  if (x->shm) image->data = nullptr;  // the segment stays
  XDestroyImage(image);
  return ok;
}

}  // namespace platform::desktop
