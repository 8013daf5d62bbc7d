// The WebSocket to the panel: orders and their answers, and what the unit tells. Comes back when it was lost.

const FIRST_WAIT = 250, LONGEST_WAIT = 4000;

export class Link {
  // `on` has functions: hello, news (both get a message), picture (a buffer), up, and down (which gets the reason).
  constructor(on) {
    this.on = on;
    this.waiting = new Map();
    this.number = 0;
    this.wait = FIRST_WAIT;
    this.isLost = false;
    this.open();
  }

  open() {
    const address = new URL("socket", location.href);
    address.protocol = "ws:";
    this.socket = new WebSocket(address);
    this.socket.binaryType = "arraybuffer";
    this.socket.onmessage = (event) => this.take(event.data);
    this.socket.onclose = (event) => this.lost(event.reason);
  }

  take(data) {
    if (data instanceof ArrayBuffer) {
      this.on.picture(data);
      return;
    }
    const message = JSON.parse(data);
    if (message.hello) {
      this.wait = FIRST_WAIT;
      this.isLost = false;
      this.on.hello(message);
      this.on.up();
    } else {
      this.on.news(message);
    }
    for (const answer of message.answers ?? []) this.answer(answer);
  }

  answer({ answer, ok, text }) {
    const done = this.waiting.get(answer);
    this.waiting.delete(answer);
    done?.({ ok, text });
  }

  lost(reason) {
    for (const done of this.waiting.values()) done({ ok: false, text: "the connection was lost before the answer came" });
    this.waiting.clear();
    if (!this.isLost) this.on.down(reason); // later ones have no reason to tell
    this.isLost = true;
    setTimeout(() => this.open(), this.wait);
    this.wait = Math.min(2 * this.wait, LONGEST_WAIT);
  }

  get isUp() {
    return this.socket.readyState === WebSocket.OPEN;
  }

  // A promise of {ok, text}.
  order(words) {
    if (!this.isUp) return Promise.resolve({ ok: false, text: "not connected to the unit" });
    const id = ++this.number;
    this.socket.send(JSON.stringify({ id, order: words }));
    return new Promise((done) => this.waiting.set(id, done));
  }

  shown(number) {
    if (this.isUp) this.socket.send(JSON.stringify({ shown: number }));
  }
}
