// The plot's numbers: the readout's texts as the window prints them, and the
// full view's Y range on both scales.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { fullYRange, readoutNumber } from '../plot.js';

test('the readout prints up to 8 significant digits, as %g does', () => {
  const cases = [[0, '0'], [1.5, '1.5'], [-2, '-2'], [39, '39'], [12345678, '12345678'], [123456789, '1.2345679e+08'],
    [0.000123456789, '0.00012345679'], [1e-7, '1e-07'], [-3.25e-12, '-3.25e-12'], [2.5e20, '2.5e+20'], [0.1, '0.1']];
  for (const [value, text] of cases) assert.equal(readoutNumber(value), text, String(value));
});

test('the full view: the data range, or whole decades with the floor below the smallest positive value', () => {
  assert.deepEqual(fullYRange([3, 7, 5], false), { lo: 3, hi: 7, floor: 0.1 });
  assert.deepEqual(fullYRange([4, 4], false), { lo: 4, hi: 5, floor: 0.1 }, 'a flat result still has a height');
  // Zero and negative values sit one decade below the smallest positive value.
  assert.deepEqual(fullYRange([0, 25, 830], true), { lo: 1, hi: 1000, floor: 1 });
  assert.deepEqual(fullYRange([-4, 0.02, 0.5], true), { lo: 0.001, hi: 1, floor: 0.001 });
  assert.deepEqual(fullYRange([20, 300], true), { lo: 10, hi: 1000, floor: 1 });
  assert.deepEqual(fullYRange([0, 0], true), { lo: 0.1, hi: 1, floor: 0.1 }, 'no positive value');
});
