// The plot of a result with the window's look: a green line on a dark cyan
// wall on the grey form, no grid; on the logarithmic scale zero and negative
// values sit on the floor one decade below the smallest positive value.
// The wheel narrows or widens X around the cursor, a dragged rectangle
// zooms into it, Home (the key or the button) returns to the full view, and
// the readout names the point nearest the cursor.

const FORM = 'rgb(221, 221, 221)';
const WALL = 'rgb(0, 127, 127)';
const SERIES = 'rgb(0, 255, 0)';
const WHEEL_ZOOM = 0.8; // one notch narrows X to this fraction
const MARGIN = { left: 12, right: 12, top: 28, bottom: 12 };

// As the window prints a number: up to 8 significant digits, %g style.
export function readoutNumber(v) {
  if (v === 0) return '0';
  if (!Number.isFinite(v)) return String(v);
  const exponent = Math.floor(Math.log10(Math.abs(v)));
  if (exponent < -5 || exponent >= 8) {
    const [m, e] = v.toExponential(7).split('e');
    const mantissa = m.includes('.') ? m.replace(/0+$/, '').replace(/\.$/, '') : m;
    const n = Number(e);
    return `${mantissa}e${n < 0 ? '-' : '+'}${String(Math.abs(n)).padStart(2, '0')}`;
  }
  const text = v.toPrecision(8);
  return text.includes('.') ? text.replace(/0+$/, '').replace(/\.$/, '') : text;
}

// The full view's Y range: the data's own, or whole decades around the positive values.
export function fullYRange(ys, logarithmic) {
  let lo = Infinity;
  let hi = -Infinity;
  let positive = 0;
  for (const y of ys) {
    if (y < lo) lo = y;
    if (y > hi) hi = y;
    if (y > 0 && (positive === 0 || y < positive)) positive = y;
  }
  if (!ys.length) return { lo: 0, hi: 1, floor: 0.1 };
  const floor = positive > 0 ? 10 ** (Math.floor(Math.log10(positive)) - 1) : 0.1;
  if (!logarithmic) return { lo, hi: hi > lo ? hi : lo + 1, floor };
  const low = positive > 0 ? Math.floor(Math.log10(positive)) - (lo <= 0 ? 1 : 0) : -1;
  const high = hi > 0 ? Math.ceil(Math.log10(hi)) : 0;
  return { lo: 10 ** low, hi: 10 ** Math.max(high, low + 1), floor };
}

export class SpecPlot {
  constructor(canvas, readout) {
    this.canvas = canvas;
    this.readout = readout;
    this.xs = new Float64Array(0);
    this.ys = new Float64Array(0);
    this.name = '';
    this.logarithmic = false;
    this.view = null;
    this.full = null;
    this.drag = null;
    this.cursor = null;
    canvas.tabIndex = 0;
    canvas.addEventListener('wheel', (e) => this.wheel(e), { passive: false });
    canvas.addEventListener('mousedown', (e) => this.startDrag(e));
    canvas.addEventListener('mousemove', (e) => this.move(e));
    canvas.addEventListener('mouseup', (e) => this.endDrag(e));
    canvas.addEventListener('mouseleave', () => this.hideReadout());
    canvas.addEventListener('keydown', (e) => { if (e.key === 'Home') this.home(); });
    new ResizeObserver(() => this.draw()).observe(canvas);
  }

  show(xy, name) {
    const n = xy.length / 2;
    this.xs = new Float64Array(n);
    this.ys = new Float64Array(n);
    for (let i = 0; i < n; i++) {
      this.xs[i] = xy[2 * i];
      this.ys[i] = xy[2 * i + 1];
    }
    this.name = name;
    this.setLogarithmic(this.logarithmic);
  }

  setLogarithmic(logarithmic) {
    this.logarithmic = logarithmic;
    const n = this.xs.length;
    const y = fullYRange(this.ys, logarithmic);
    this.floor = y.floor;
    const x0 = n ? this.xs[0] : 0;
    const x1 = n ? this.xs[n - 1] : 1;
    this.full = { x0, x1: x1 !== x0 ? x1 : x0 + 1, y0: y.lo, y1: y.hi };
    this.home();
  }

  home() {
    this.view = { ...this.full };
    this.hideReadout();
    this.draw();
  }

  area() {
    const w = this.canvas.clientWidth;
    const h = this.canvas.clientHeight;
    return { left: MARGIN.left, top: MARGIN.top, width: Math.max(1, w - MARGIN.left - MARGIN.right),
      height: Math.max(1, h - MARGIN.top - MARGIN.bottom) };
  }

  shownY(y) { return this.logarithmic && y <= 0 ? this.floor : y; }

  scaleY(y) { return this.logarithmic ? Math.log10(y) : y; }

  toPixel(x, y) {
    const a = this.area();
    const v = this.view;
    const fy = (this.scaleY(this.shownY(y)) - this.scaleY(v.y0)) / (this.scaleY(v.y1) - this.scaleY(v.y0));
    return [a.left + ((x - v.x0) / (v.x1 - v.x0)) * a.width, a.top + (1 - fy) * a.height];
  }

  toValue(px, py) {
    const a = this.area();
    const v = this.view;
    const x = v.x0 + ((px - a.left) / a.width) * (v.x1 - v.x0);
    const s = this.scaleY(v.y0) + (1 - (py - a.top) / a.height) * (this.scaleY(v.y1) - this.scaleY(v.y0));
    return [x, this.logarithmic ? 10 ** s : s];
  }

  draw() {
    const c = this.canvas;
    const ratio = window.devicePixelRatio || 1;
    const w = c.clientWidth;
    const h = c.clientHeight;
    if (!w || !h || !this.view) return;
    c.width = Math.round(w * ratio);
    c.height = Math.round(h * ratio);
    const g = c.getContext('2d');
    g.setTransform(ratio, 0, 0, ratio, 0, 0);
    g.fillStyle = FORM;
    g.fillRect(0, 0, w, h);
    g.fillStyle = '#000';
    g.font = 'bold 14px system-ui, sans-serif';
    g.textAlign = 'center';
    g.fillText(this.name, w / 2, 19);
    const a = this.area();
    g.fillStyle = WALL;
    g.fillRect(a.left, a.top, a.width, a.height);
    g.save();
    g.beginPath();
    g.rect(a.left, a.top, a.width, a.height);
    g.clip();
    g.strokeStyle = SERIES;
    g.lineWidth = 1;
    g.beginPath();
    // Runs of points within one pixel column are drawn as one stroke from their lowest to their highest.
    let column = null;
    let low = 0;
    let high = 0;
    let started = false;
    for (let i = 0; i < this.xs.length; i++) {
      const [px, py] = this.toPixel(this.xs[i], this.ys[i]);
      const col = Math.round(px);
      if (col === column) {
        if (py < low) low = py;
        if (py > high) high = py;
        g.lineTo(px, py);
        continue;
      }
      if (started && high - low > 0) {
        g.moveTo(column, low);
        g.lineTo(column, high);
        g.moveTo(column, high);
      }
      if (!started) g.moveTo(px, py);
      else g.lineTo(px, py);
      started = true;
      column = col;
      low = high = py;
    }
    g.stroke();
    if (this.cursor) {
      const [mx, my] = this.toPixel(this.xs[this.cursor], this.ys[this.cursor]);
      g.strokeStyle = '#fff';
      g.strokeRect(mx - 3, my - 3, 6, 6);
    }
    if (this.drag && this.drag.x1 !== undefined) {
      g.strokeStyle = '#fff';
      g.setLineDash([4, 3]);
      g.strokeRect(this.drag.x0, this.drag.y0, this.drag.x1 - this.drag.x0, this.drag.y1 - this.drag.y0);
    }
    g.restore();
  }

  position(e) {
    const r = this.canvas.getBoundingClientRect();
    return [e.clientX - r.left, e.clientY - r.top];
  }

  wheel(e) {
    if (!this.view) return;
    e.preventDefault();
    const [px, py] = this.position(e);
    const notches = -e.deltaY / 100;
    const factor = WHEEL_ZOOM ** notches;
    const a = this.area();
    const x = this.toValue(Math.min(Math.max(px, a.left), a.left + a.width), py)[0];
    this.view.x0 = x - (x - this.view.x0) * factor;
    this.view.x1 = x + (this.view.x1 - x) * factor;
    this.showReadout(px, py);
  }

  startDrag(e) {
    if (e.button !== 0) return;
    const [x, y] = this.position(e);
    this.drag = { x0: x, y0: y };
  }

  endDrag(e) {
    const d = this.drag;
    this.drag = null;
    if (!d || d.x1 === undefined) return;
    const [x, y] = this.position(e);
    if (Math.abs(x - d.x0) < 4 || Math.abs(y - d.y0) < 4) return this.draw();
    const [ax, ay] = this.toValue(Math.min(x, d.x0), Math.max(y, d.y0));
    const [bx, by] = this.toValue(Math.max(x, d.x0), Math.min(y, d.y0));
    this.view = { x0: ax, x1: bx, y0: ay, y1: by };
    this.showReadout(x, y);
  }

  move(e) {
    const [x, y] = this.position(e);
    if (this.drag) {
      this.drag.x1 = x;
      this.drag.y1 = y;
    }
    this.showReadout(x, y);
  }

  // The point nearest the cursor's X, as the window's readout finds it.
  nearest(x) {
    let best = -1;
    let distance = Infinity;
    for (let i = 0; i < this.xs.length; i++) {
      const d = Math.abs(this.xs[i] - x);
      if (d < distance) {
        distance = d;
        best = i;
      }
    }
    return best;
  }

  showReadout(px, py) {
    if (!this.xs.length || !this.view) return this.hideReadout();
    const i = this.nearest(this.toValue(px, py)[0]);
    this.cursor = i;
    const r = this.readout;
    r.textContent = `X = ${readoutNumber(this.xs[i])}   Y = ${readoutNumber(this.ys[i])}`;
    r.hidden = false;
    const w = this.canvas.clientWidth;
    const h = this.canvas.clientHeight;
    r.style.left = `${Math.min(px + 14, w - r.offsetWidth)}px`;
    r.style.top = `${Math.min(py + 14, h - r.offsetHeight)}px`;
    this.draw();
  }

  hideReadout() {
    this.readout.hidden = true;
    this.cursor = null;
    this.draw();
  }

  // A PNG of the plot without the readout, named after the result.
  saveImage() {
    const cursor = this.cursor;
    this.cursor = null;
    this.draw();
    const link = document.createElement('a');
    link.download = `${this.name.replace(/\.[^.]*$/, '')}.png`;
    link.href = this.canvas.toDataURL('image/png');
    link.click();
    this.cursor = cursor;
    this.draw();
  }
}
