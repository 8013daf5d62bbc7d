// Beeps and sounds of the unit, to be heard where the user wants that, and told in any case.

import { fileName } from "./format.js";

export class Sound {
  constructor(button, told) {
    this.told = told;
    this.audio = null;
    this.counts = null;
    button.addEventListener("click", () => {
      if (this.audio) this.audio.close();
      this.audio = this.audio ? null : new AudioContext();
      button.setAttribute("aria-pressed", this.audio !== null);
      button.textContent = this.audio ? "Sound on" : "Sound off";
    });
  }

  // The noun "front" has changed; what was before the page is not played again.
  follow(front) {
    const counts = { beeps: front.Beeps?.count ?? 0, played: front.Played?.count ?? 0 };
    const before = this.counts ?? counts;
    this.counts = counts;
    for (const beep of news(front.Beeps, before.beeps)) this.beep(...beep);
    for (const [path] of news(front.Played, before.played)) this.play(fileName(path), front.Volume);
  }

  // After a new connection nothing is news.
  forget() {
    this.counts = null;
  }

  tell(text) {
    this.told.textContent = text;
    this.told.classList.remove("flash");
    void this.told.offsetWidth; // begins the animation anew
    this.told.classList.add("flash");
  }

  beep(duration, period, number) {
    this.tell(`Beep${number > 1 ? ` × ${number}` : ""}, ${duration} ms (${this.counts.beeps} so far)`);
    if (!this.audio) return;
    for (let i = 0; i < number; i++) {
      const tone = this.audio.createOscillator(), volume = this.audio.createGain();
      const start = this.audio.currentTime + (i * (duration + period)) / 1000;
      tone.frequency.value = 2200;
      volume.gain.value = 0.15;
      tone.connect(volume).connect(this.audio.destination);
      tone.start(start);
      tone.stop(start + duration / 1000);
    }
  }

  async play(name, volume) {
    this.tell(`Played ${name}`);
    if (!this.audio) return;
    const answer = await fetch(`sound/${encodeURIComponent(name)}`);
    if (!answer.ok) return;
    const source = this.audio.createBufferSource(), gain = this.audio.createGain();
    source.buffer = await this.audio.decodeAudioData(await answer.arrayBuffer());
    gain.gain.value = Math.max(volume, 0) / 100;
    source.connect(gain).connect(this.audio.destination);
    source.start();
  }
}

// Of a list of which only the end is known, what is behind the first `seen`.
function news(list, seen) {
  if (!list || list.count <= seen) return [];
  return list.last.slice(-(list.count - seen));
}
