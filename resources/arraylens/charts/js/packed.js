// Shared by the chart pages.
// The channel carries arrays of numbers packed as {"$f64": base64 of raw
// doubles} or, when all are whole, {"$i32": base64 of 32-bit integers}: as
// plain JSON arrays, large plots took many seconds to arrive.
var BASE64 = (function () {
  var codes = new Uint8Array(256);
  var alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (var i = 0; i < alphabet.length; ++i)
    codes[alphabet.charCodeAt(i)] = i;
  return codes;
})();

function decodeBytes(text) {
  var n = text.length;
  var pad = n > 0 && text.charCodeAt(n - 1) === 61 ? (text.charCodeAt(n - 2) === 61 ? 2 : 1) : 0;
  var size = (n / 4) * 3 - pad;
  var bytes = new Uint8Array(size + pad);
  for (var i = 0, j = 0; i < n; i += 4, j += 3) {
    var v = (BASE64[text.charCodeAt(i)] << 18) | (BASE64[text.charCodeAt(i + 1)] << 12) |
            (BASE64[text.charCodeAt(i + 2)] << 6) | BASE64[text.charCodeAt(i + 3)];
    bytes[j] = v >>> 16;
    bytes[j + 1] = (v >>> 8) & 255;
    bytes[j + 2] = v & 255;
  }
  return { buffer: bytes.buffer, size: size };
}

function unpack(value) {
  if (Array.isArray(value))
    return value.map(unpack);
  if (value !== null && typeof value === "object") {
    if (typeof value["$f64"] === "string") {
      var doubles = decodeBytes(value["$f64"]);
      return new Float64Array(doubles.buffer, 0, doubles.size / 8);
    }
    if (typeof value["$i32"] === "string") {
      var ints = decodeBytes(value["$i32"]);
      return new Int32Array(ints.buffer, 0, ints.size / 4);
    }
    var out = {};
    for (var key in value)
      out[key] = unpack(value[key]);
    return out;
  }
  return value;
}
