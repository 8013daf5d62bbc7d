// The unit's display: two layers, of which what has changed comes as pictures, shown as one.

const HEAD = 16;

export class Display {
  constructor(canvas) {
    this.canvas = canvas;
    this.layers = [0, 1].map(() => document.createElement("canvas"));
  }

  // Takes a picture; returns its number when it is shown.
  async take(buffer) {
    const head = new DataView(buffer);
    const number = head.getUint32(0), [layer, width, height, x, y] = [4, 6, 8, 10, 12].map((at) => head.getUint16(at));
    const canvas = this.layers[layer];
    if (canvas.width !== width || canvas.height !== height) Object.assign(canvas, { width, height });
    if (buffer.byteLength > HEAD) {
      const picture = await createImageBitmap(new Blob([new Uint8Array(buffer, HEAD)]), { premultiplyAlpha: "none" });
      const context = canvas.getContext("2d");
      context.clearRect(x, y, picture.width, picture.height);
      context.drawImage(picture, x, y);
      picture.close();
    }
    this.show();
    return number;
  }

  show() {
    const [video] = this.layers.filter((layer) => layer.width && layer.height);
    if (video && (this.canvas.width !== video.width || this.canvas.height !== video.height)) {
      Object.assign(this.canvas, { width: video.width, height: video.height });
    }
    const context = this.canvas.getContext("2d");
    context.fillStyle = "#000";
    context.fillRect(0, 0, this.canvas.width, this.canvas.height);
    for (const layer of this.layers) if (layer.width && layer.height) context.drawImage(layer, 0, 0);
  }
}
