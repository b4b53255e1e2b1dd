#version 330 core
layout(location = 0) in vec4 in_VertexRGBA;
out vec4 b_color;
uniform mat4 u_mvpMatrix;
uniform float pointsize;
void main() {
   uint vertexColor = floatBitsToUint(in_VertexRGBA.w); 
   vec3 clrf = vec3((vertexColor & uint(0x00FF0000)) >> 16, (vertexColor & uint(0x0000FF00)) >> 8, (vertexColor & uint(0x000000FF))) / 255.0f;   b_color = vec4(clrf, 1.f);
   gl_Position = u_mvpMatrix * vec4(in_VertexRGBA.xyz, 1);
   gl_PointSize = pointsize;
}