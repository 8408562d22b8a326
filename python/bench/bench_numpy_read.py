"""Reading a 1M-element double array into NumPy: through the binding against numpy.frombuffer.

Both read the same archive bytes (a DoubleArrayMetadata: type id, count, then the doubles).
  binding:        np.asarray(zelto.loads(data)), one copy into the array's own storage, then a
                  view of it
  frombuffer+copy np.frombuffer(data, offset=12).copy(), the same work by NumPy alone: an owning
                  array
  frombuffer      the bare view into `data`, no copy at all (a lower bound, not like for like)
Prints the best of several runs of each and the ratios (frombuffer time / binding time; the
target is >= 0.8 against frombuffer+copy).

  PYTHONPATH=build/release/python /usr/bin/python3 python/bench/bench_numpy_read.py
"""
import timeit

import numpy as np

import zelto

N = 1_000_000
data = zelto.dumps(zelto.create("DoubleArrayMetadata", np.random.default_rng(1).random(N)))
assert len(data) == 12 + 8 * N


def binding():
    return np.asarray(zelto.loads(data))


def frombuffer_copy():
    return np.frombuffer(data, dtype="<f8", offset=12).copy()


def frombuffer():
    return np.frombuffer(data, dtype="<f8", offset=12)


assert np.array_equal(binding(), frombuffer())
times = {}
for name, f in (("binding", binding), ("frombuffer+copy", frombuffer_copy), ("frombuffer", frombuffer)):
    runs = timeit.repeat(f, number=20, repeat=7)
    times[name] = min(runs) / 20
    print(f"{name:16s} {times[name] * 1e3:9.3f} ms")
print(f"ratio frombuffer+copy / binding: {times['frombuffer+copy'] / times['binding']:.2f}")
print(f"ratio frombuffer (view) / binding: {times['frombuffer'] / times['binding']:.4f}")
