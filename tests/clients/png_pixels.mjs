// Reads the pixels of the PNG screenshots that Chromium takes (8-bit RGB
// or RGBA, not interlaced), to tell whether a page drew anything.
import zlib from 'node:zlib';

// Unfilters the scanlines: each starts with its filter type (0..4).
function unfilter(data, width, height, channels) {
  const stride = width * channels;
  const pixels = Buffer.alloc(stride * height);
  for (let y = 0; y < height; ++y) {
    const type = data[y * (stride + 1)];
    const line = data.subarray(y * (stride + 1) + 1, (y + 1) * (stride + 1));
    for (let x = 0; x < stride; ++x) {
      const left = x >= channels ? pixels[y * stride + x - channels] : 0;
      const up = y > 0 ? pixels[(y - 1) * stride + x] : 0;
      const upLeft = x >= channels && y > 0 ? pixels[(y - 1) * stride + x - channels] : 0;
      let predictor = 0;
      if (type === 1) predictor = left;
      else if (type === 2) predictor = up;
      else if (type === 3) predictor = (left + up) >> 1;
      else if (type === 4) {
        const p = left + up - upLeft;
        const [pa, pb, pc] = [Math.abs(p - left), Math.abs(p - up), Math.abs(p - upLeft)];
        predictor = pa <= pb && pa <= pc ? left : pb <= pc ? up : upLeft;
      }
      pixels[y * stride + x] = (line[x] + predictor) & 0xFF;
    }
  }
  return pixels;
}

// {width, height, channels, pixels} of a PNG file's bytes.
export function decodePng(png) {
  let offset = 8;  // the signature
  let header = null;
  const compressed = [];
  while (offset < png.length) {
    const length = png.readUInt32BE(offset);
    const type = png.toString('latin1', offset + 4, offset + 8);
    const body = png.subarray(offset + 8, offset + 8 + length);
    if (type === 'IHDR') {
      header = {width: body.readUInt32BE(0), height: body.readUInt32BE(4), depth: body[8],
                colour: body[9], interlace: body[12]};
    } else if (type === 'IDAT') {
      compressed.push(body);
    }
    offset += 12 + length;
  }
  if (!header || header.depth !== 8 || header.interlace !== 0 || ![2, 6].includes(header.colour)) {
    throw new Error('not an 8-bit RGB or RGBA PNG');
  }
  const channels = header.colour === 6 ? 4 : 3;
  const data = zlib.inflateSync(Buffer.concat(compressed));
  return {width: header.width, height: header.height, channels,
          pixels: unfilter(data, header.width, header.height, channels)};
}

// How many pixels of rows [top, bottom) carry colour rather than a shade of
// grey: text, grid lines and the page are grey, drawn slices are not.
export function colouredPixels({width, height, channels, pixels}, top = 0, bottom = height) {
  let count = 0;
  for (let y = top; y < Math.min(bottom, height); ++y) {
    for (let x = 0; x < width; ++x) {
      const at = (y * width + x) * channels;
      const [r, g, b] = [pixels[at], pixels[at + 1], pixels[at + 2]];
      if (Math.max(r, g, b) - Math.min(r, g, b) > 24) ++count;
    }
  }
  return count;
}
