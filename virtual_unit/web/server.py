"""The web server of a panel: its files, the job's pictures and the sounds, and a WebSocket for each page."""

import asyncio
import contextlib
import hmac
import json
import mimetypes
import os
import secrets
import signal
import socket
import sys
from dataclasses import dataclass

from aiohttp import WSCloseCode, WSMsgType, web

from .. import faults
from ..client import DbusFailure
from ..declaration import call_names
from ..registry import NoUnit, choose
from ..verbs import SIBLINGS, choices_of, nouns
from .display import Viewer
from .mirror import Mirror
from .outbox import Outbox
from .scenes import Scenes, listed

_PAGE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "page")
_HOST = "127.0.0.1"
#: The folder of the sounds in a unit's folder.
_SOUNDS = "sounds"
#: How long a page has to take the panel's last word; one that does not read would have it for ever.
_FAREWELL_SECONDS = 1
_MOST_PAGES, _MOST_ORDERS, _MOST_WORDS = 16, 16, 20
_LONGEST_MESSAGE = 16 * 1024
#: What the kernel keeps for a page that does not read: a page that reads again is to see what is, not what was.
_KEPT_BY_THE_KERNEL = 128 * 1024
#: The environment variable that gives the address its secret part, for a panel that is to come back at its address.
TOKEN = "CCU_PANEL_TOKEN"


@dataclass(eq=False)
class _Page:
    """One open page."""
    outbox: Outbox
    viewer: Viewer
    orders: set


def _refuse(text):
    raise web.HTTPForbidden(text=f"{text}\n")


class Server:
    """Serves the panel of a unit that runs, at `address`; sets `ended` when the unit has ended."""

    def __init__(self, running, port, token, ended):
        self._running, self._port, self._token = running, port, token
        self.ended = ended
        self._pages = set()
        self._sockets = set()
        self._kept_file = os.path.join(running.folder, f"panel-{os.getpid()}.unit")  # goes with the unit, at the latest
        zones_folder = os.path.join(running.build_dir, "zones")
        self._mirror = Mirror(running.session, zones_folder, self, self.ended.set)
        self._scenes = Scenes(running.folder, self._mirror.change)
        self._orders = {"do": self._mirror.do, "set": self._mirror.set, "call": self._mirror.call,
                        "run": self._scenes.run, "stop": self._scenes.stop, "keep": self._keep, "back": self._back}
        self._runner = None

    @property
    def address(self):
        """What a browser opens."""
        return f"http://{_HOST}:{self._port}/{self._token}/"

    async def __aenter__(self):
        await asyncio.gather(self._mirror.start(), asyncio.to_thread(listed))
        app = web.Application(middlewares=[self._guard])
        app.router.add_get("/{token}", self._to_index)
        app.router.add_get("/{token}/", self._index)
        app.router.add_get("/{token}/socket", self._socket)
        app.router.add_get("/{token}/media/{id}", self._media)
        app.router.add_get("/{token}/sound/{name}", self._sound)
        app.router.add_get("/{token}/{name}", self._file)
        self._runner = web.AppRunner(app, access_log=None)
        await self._runner.setup()
        site = web.TCPSite(self._runner, _HOST, self._port, shutdown_timeout=1)
        await site.start()
        self._port = self._runner.addresses[0][1]
        return self

    async def __aexit__(self, *_):
        self.ended.set()
        await asyncio.gather(*map(self._bid_farewell, self._sockets.copy()))
        await self._scenes.close()
        await self._runner.cleanup()
        self._mirror.close()
        with contextlib.suppress(FileNotFoundError):
            os.unlink(self._kept_file)

    # Who may ask ------------------------------------------------------------------------------------------------------

    @web.middleware
    async def _guard(self, request, handler):
        """Lets nobody in but pages of this address that know the token: other pages in the same browser can send
        requests here, and can make a name of theirs lead here."""
        try:
            self._check(request)
            response = await handler(request)
        except web.HTTPException as refused:
            self._protect(request, refused)
            raise
        if not response.prepared:
            self._protect(request, response)
        return response

    def _check(self, request):
        if request.headers.get("Host") not in (f"{_HOST}:{self._port}", f"localhost:{self._port}"):
            _refuse("This is not the panel's host.")
        own = f"http://{request.headers['Host']}"
        is_socket = request.path.endswith("/socket")
        if request.headers.get("Origin", None if is_socket else own) != own:
            _refuse("The panel takes requests from its own page only.")
        given = request.match_info.get("token") or request.path.strip("/")
        if not hmac.compare_digest(given.encode("utf-8", "replace"), self._token.encode()):
            _refuse("The panel's address has a secret part: open it as ./ccu up --panel has printed it.")

    @staticmethod
    def _protect(request, response):
        host = request.headers.get("Host", _HOST)
        response.headers.update({
            "Content-Security-Policy": "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
                                       f"connect-src 'self' ws://{host}; base-uri 'none'; form-action 'none'; "
                                       "frame-ancestors 'none'",
            "Cache-Control": "no-store", "Cross-Origin-Opener-Policy": "same-origin",
            "Cross-Origin-Resource-Policy": "same-origin", "Referrer-Policy": "no-referrer",
            "X-Content-Type-Options": "nosniff", "X-Frame-Options": "DENY"})

    # Files ------------------------------------------------------------------------------------------------------------

    @staticmethod
    async def _to_index(request):
        raise web.HTTPFound(f"{request.path}/")

    async def _index(self, _request):
        return web.FileResponse(os.path.join(_PAGE, "index.html"), headers={"Content-Type": "text/html"})

    async def _file(self, request):
        name = request.match_info["name"]
        if name not in os.listdir(_PAGE):
            raise web.HTTPNotFound(text="There is no such file.\n")
        kind = "text/javascript" if name.endswith(".js") else mimetypes.guess_type(name)[0]
        return self._send_file(_PAGE, name, kind)

    async def _media(self, request):
        wanted = request.match_info["id"]
        for item in self._mirror.state.get("job", {}).get("Media", ()):
            if item["Id"] == wanted and item["Type"] == "snapshot":
                return self._send_file(*os.path.split(item["Path"]), "image/jpeg")
        raise web.HTTPNotFound(text="The job has no such picture.\n")

    async def _sound(self, request):
        folder = os.path.join(self._running.folder, _SOUNDS)
        name = request.match_info["name"]
        if not name.endswith(".wav") or os.sep in name:
            raise web.HTTPNotFound(text="There is no such sound.\n")
        return self._send_file(folder, name, "audio/wav")

    @staticmethod
    def _send_file(folder, name, kind):
        path = os.path.join(folder, name)
        if not os.path.isfile(path):
            raise web.HTTPNotFound(text="There is no such file.\n")
        return web.FileResponse(path, headers={"Content-Type": kind or "application/octet-stream"})

    # Pages ------------------------------------------------------------------------------------------------------------

    def state_changed(self, noun, changes):
        """The mirror has news."""
        for page in self._pages:
            page.outbox.add_state(noun, changes)
            if noun == "front":
                page.viewer.note(changes)

    def happened(self, line):
        """The mirror has a line."""
        for page in self._pages:
            page.outbox.add_line(line)

    def _greeting(self):
        key = nouns()["key"].verbs["type"].inputs[0]
        zone = nouns()["clock"].verbs["zone"].inputs[0]
        state = {**self._mirror.state, "times": self._mirror.times()}
        return {"hello": {"unit": self._running.name, "siblings": {name: call_names(name) for name in SIBLINGS},
                          "faults": faults.KINDS, "keys": choices_of(key, {}), "zones": choices_of(zone, {}),
                          "scenarios": listed()},
                "state": state, "lines": list(self._mirror.lines)}

    async def _socket(self, request):
        if len(self._pages) >= _MOST_PAGES:
            raise web.HTTPServiceUnavailable(text=f"{_MOST_PAGES} pages are open already.\n")
        link = web.WebSocketResponse(max_msg_size=_LONGEST_MESSAGE, compress=False)
        await link.prepare(request)
        request.transport.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, _KEPT_BY_THE_KERNEL)
        page = _Page(Outbox(), Viewer(self._mirror.state["front"], self._mirror.look), set())
        greeting = json.dumps(self._greeting())
        self._pages.add(page)  # from now on, without a gap behind the greeting
        self._sockets.add(link)
        senders = [asyncio.ensure_future(self._send(link, page, greeting)),
                   asyncio.ensure_future(self._send_pictures(link, page))]
        try:
            async for message in link:
                if message.type == WSMsgType.TEXT:
                    self._take(page, message.data)
                else:
                    self._answer(page, None, False, "a message is a text")
        finally:
            self._pages.discard(page)
            self._sockets.discard(link)
            for task in (*senders, *page.orders):
                task.cancel()
        if self.ended.is_set():
            await self._bid_farewell(link)  # or this would be an end without a reason, when it comes first
        return link

    @staticmethod
    async def _bid_farewell(link):
        with contextlib.suppress(asyncio.TimeoutError):
            await asyncio.wait_for(link.close(code=WSCloseCode.GOING_AWAY, message=b"the panel has ended"),
                                   _FAREWELL_SECONDS)

    @staticmethod
    async def _send(link, page, greeting):
        with contextlib.suppress(ConnectionError):
            await link.send_str(greeting)
            while True:
                await link.send_str(json.dumps(await page.outbox.take()))

    @staticmethod
    async def _send_pictures(link, page):
        with contextlib.suppress(ConnectionError):
            while True:
                await link.send_bytes(await page.viewer.next())

    # Orders -----------------------------------------------------------------------------------------------------------

    @staticmethod
    def _answer(page, number, good, text):
        page.outbox.add_answer({"answer": number, "ok": good, "text": text})

    def _take(self, page, text):
        try:
            message = json.loads(text)
        except ValueError:
            self._answer(page, None, False, "a message is JSON")
            return
        if not isinstance(message, dict):
            self._answer(page, None, False, "a message is an object")
        elif isinstance(message.get("shown"), int):
            page.viewer.acknowledge(message["shown"])
        else:
            self._take_order(page, message.get("id"), message.get("order"))

    def _take_order(self, page, number, words):
        if not isinstance(number, int):
            self._answer(page, None, False, "an order needs a number, its 'id'")
        elif not (isinstance(words, list) and 0 < len(words) <= _MOST_WORDS and
                  all(isinstance(word, str) for word in words)):
            self._answer(page, number, False, f"an 'order' is a list of 1 to {_MOST_WORDS} words")
        elif words[0] not in self._orders:
            self._answer(page, number, False, f"no order '{words[0]}'; there are: {', '.join(self._orders)}")
        elif len(page.orders) >= _MOST_ORDERS:
            self._answer(page, number, False, f"{_MOST_ORDERS} orders are being carried out already")
        else:
            task = asyncio.ensure_future(self._carry_out(page, number, words))
            page.orders.add(task)
            task.add_done_callback(page.orders.discard)

    async def _carry_out(self, page, number, words):
        try:
            result = await self._orders[words[0]](words[1:])
        except DbusFailure as failure:
            result = failure.text or failure.name, False
        except (IndexError, OverflowError, TypeError, ValueError) as error:
            result = str(error) or "the order lacks its words", False
        text, good = result if isinstance(result, tuple) else (result, True)
        self._answer(page, number, good, text)

    async def _keep(self, _words):
        await self._mirror.do(["unit", "save", self._kept_file])
        self._mirror.change("panel", {"Kept": True})
        return "the unit's state is kept"

    async def _back(self, _words):
        if not self._mirror.state.get("panel", {}).get("Kept"):
            raise ValueError("no state has been kept")
        await self._mirror.do(["unit", "load", self._kept_file])
        return "the unit is back at the state that was kept"


async def _serve(running, port, token):
    ended = asyncio.Event()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        asyncio.get_running_loop().add_signal_handler(number, ended.set)
    async with Server(running, port, token, ended) as server:
        print(server.address, flush=True)
        await ended.wait()


def panel(unit=None, port=0):
    """Serves the panel of a unit that runs, and prints its address, until the unit ends or a signal asks for the end;
    returns the exit status for the shell."""
    try:
        asyncio.run(_serve(choose(unit), port, os.environ.get(TOKEN) or secrets.token_urlsafe(24)))
    except (NoUnit, DbusFailure, OSError) as problem:
        print(f"ccu: {getattr(problem, 'text', problem)}", file=sys.stderr)
        return 1
    return 0
