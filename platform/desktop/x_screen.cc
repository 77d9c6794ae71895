#include "platform/desktop/x_screen.h"

// clang-format off
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/Xdamage.h>
// clang-format on
#include <poll.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>

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
  Damage damage = 0;
  int damageEvent = 0;
  bool shm = false;
  XShmSegmentInfo segment{};
  XImage* image = nullptr;
  std::shared_ptr<std::atomic<bool>> lostFlag;  // kept alive while Xlib may call markLost

  ~Connection() {
    if (display == nullptr) return;
    if (!lostFlag->load()) {
      if (damage != 0) XDamageDestroy(display, damage);
      if (shm) XShmDetach(display, &segment);
      XSync(display, False);
    }
    if (image != nullptr) {
      image->data = nullptr;  // the shared segment, detached below
      XDestroyImage(image);
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
  Visual* visual = DefaultVisual(dpy, screen);
  int depth = DefaultDepth(dpy, screen);
  grabber->width = uint32_t(DisplayWidth(dpy, screen));
  grabber->height = uint32_t(DisplayHeight(dpy, screen));
  if (visual->red_mask != 0xFF0000 || visual->green_mask != 0xFF00 || visual->blue_mask != 0xFF) return nullptr;

  int damageError = 0;
  if (!XDamageQueryExtension(dpy, &connection->damageEvent, &damageError)) return nullptr;
  connection->damage = XDamageCreate(dpy, connection->root, XDamageReportNonEmpty);

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
    if (connection->shm) {
      connection->image = image;
    } else if (image != nullptr) {
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
    bool damaged = false;
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

bool XScreenGrabber::grab(uint8_t* bytes, uint32_t rowPitch, uint32_t w, uint32_t h) {
  if (dead()) return false;
  Display* dpy = x->display;
  // Damage reported so far is in the image taken below, so its events are dropped. The region is
  // emptied after them and before the image: the region reports only when it turns non-empty, so
  // damage after this point must find it empty to make the next frame.
  XSync(dpy, False);
  while (!dead() && XPending(dpy) > 0) {
    XEvent event;
    XNextEvent(dpy, &event);
  }
  XDamageSubtract(dpy, x->damage, None, None);
  XImage* image = x->image;
  XImage* own = nullptr;
  if (x->shm) {
    if (!XShmGetImage(dpy, x->root, image, 0, 0, AllPlanes)) return false;
  } else {
    own = XGetImage(dpy, x->root, 0, 0, width, height, AllPlanes, ZPixmap);
    if (own == nullptr || own->bits_per_pixel != 32) {
      if (own != nullptr) XDestroyImage(own);
      return false;
    }
    image = own;
  }
  if (dead()) {
    if (own != nullptr) XDestroyImage(own);
    return false;
  }
  uint32_t copyWidth = std::min(w, width);
  uint32_t copyHeight = std::min(h, height);
  for (uint32_t y = 0; y < h; ++y) {
    uint32_t* to = reinterpret_cast<uint32_t*>(bytes + size_t(y) * rowPitch);
    if (y >= copyHeight) {
      std::fill(to, to + w, 0xFF000000u);
      continue;
    }
    const uint32_t* from = reinterpret_cast<const uint32_t*>(image->data + size_t(y) * image->bytes_per_line);
    for (uint32_t i = 0; i < copyWidth; ++i) to[i] = from[i] | 0xFF000000u;
    std::fill(to + copyWidth, to + w, 0xFF000000u);
  }
  if (own != nullptr) XDestroyImage(own);
  return true;
}

}  // namespace platform::desktop
