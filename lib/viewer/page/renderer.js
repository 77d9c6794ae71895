// Puts decoded pictures on the canvas. WebGL uploads the VideoFrame as a texture and draws it in
// the same call (no copy to the CPU); where WebGL is missing, a bitmap renderer takes an
// ImageBitmap of the picture, which costs a conversion on another thread first.

const VERTEX = `attribute vec2 p; varying vec2 t;
void main() { t = vec2((p.x + 1.0) / 2.0, (1.0 - p.y) / 2.0); gl_Position = vec4(p, 0.0, 1.0); }`;
const FRAGMENT = `precision mediump float; varying vec2 t; uniform sampler2D s;
void main() { gl_FragColor = texture2D(s, t); }`;

function glRenderer(canvas) {
  // preserveDrawingBuffer: the picture stays readable (a screenshot, a test) after it is shown.
  const gl = canvas.getContext('webgl', { alpha: false, antialias: false, depth: false, preserveDrawingBuffer: true });
  if (!gl) return null;
  const program = gl.createProgram();
  for (const [type, source] of [[gl.VERTEX_SHADER, VERTEX], [gl.FRAGMENT_SHADER, FRAGMENT]]) {
    const shader = gl.createShader(type);
    gl.shaderSource(shader, source);
    gl.compileShader(shader);
    gl.attachShader(program, shader);
  }
  gl.linkProgram(program);
  if (!gl.getProgramParameter(program, gl.LINK_STATUS)) return null;
  gl.useProgram(program);
  gl.bindBuffer(gl.ARRAY_BUFFER, gl.createBuffer());
  gl.bufferData(gl.ARRAY_BUFFER, new Float32Array([-1, -1, 1, -1, -1, 1, 1, 1]), gl.STATIC_DRAW);
  const position = gl.getAttribLocation(program, 'p');
  gl.enableVertexAttribArray(position);
  gl.vertexAttribPointer(position, 2, gl.FLOAT, false, 0, 0);
  gl.bindTexture(gl.TEXTURE_2D, gl.createTexture());
  for (const wrap of [gl.TEXTURE_WRAP_S, gl.TEXTURE_WRAP_T]) gl.texParameteri(gl.TEXTURE_2D, wrap, gl.CLAMP_TO_EDGE);
  for (const filter of [gl.TEXTURE_MIN_FILTER, gl.TEXTURE_MAG_FILTER]) gl.texParameteri(gl.TEXTURE_2D, filter, gl.LINEAR);
  return {
    kind: 'webgl',
    // Synchronous: the frame may be closed as soon as this returns.
    draw(frame, width, height) {
      if (canvas.width !== width || canvas.height !== height) {
        canvas.width = width;
        canvas.height = height;
      }
      gl.viewport(0, 0, width, height);
      gl.texImage2D(gl.TEXTURE_2D, 0, gl.RGBA, gl.RGBA, gl.UNSIGNED_BYTE, frame);
      gl.drawArrays(gl.TRIANGLE_STRIP, 0, 4);
    },
  };
}

function canvas2dRenderer(canvas) {
  const context = canvas.getContext('2d', { alpha: false, desynchronized: true });
  return {
    kind: '2d',
    draw(frame, width, height) {
      if (canvas.width !== width || canvas.height !== height) {
        canvas.width = width;
        canvas.height = height;
      }
      context.drawImage(frame, 0, 0);
    },
  };
}

function bitmapRenderer(canvas) {
  const context = canvas.getContext('bitmaprenderer');
  return {
    kind: 'bitmaprenderer',
    draw(bitmap, width, height) {
      if (canvas.width !== width || canvas.height !== height) {
        canvas.width = width;
        canvas.height = height;
      }
      context.transferFromImageBitmap(bitmap);
    },
  };
}

// `prefer`: 'bitmaprenderer' (the default: a software WebGL, as in a headless browser, takes
// 25 ms a 1080p picture), 'webgl' or '2d' (a drawImage: 6 ms there); falls back to the bitmap renderer.
export function makeRenderer(canvas, prefer = 'bitmaprenderer') {
  if (prefer === '2d') return canvas2dRenderer(canvas);
  return (prefer === 'webgl' && glRenderer(canvas)) || bitmapRenderer(canvas);
}
